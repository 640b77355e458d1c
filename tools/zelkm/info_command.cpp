// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "info_command.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "bytes.h"
#include "doctor_report.h"
#include "key_level.h"
#include "output.h"
#include "store_file.h"
#include "store_names.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kErrorLines = 10;
constexpr size_t kShownRows = 10000;
constexpr size_t kDigestLen = 32;
constexpr std::string_view kMagicV10 = "SOBv1.0     ";

std::string versionOf(const std::string& magic) {
    if (magic == zelkm::kMagic) {
        return "1.1";
    }
    return magic == kMagicV10 ? "1.0" : "unknown, read as 1.1";
}

// What is odd about the lengths of a store; empty when nothing is.
std::string lengthsOf(const std::string& content, const StoreHeader& header) {
    const size_t there = storePayload(content, header).size();
    if (there < header.payload_len) {
        return "the file is truncated: " + std::to_string(there) +
               " bytes of the payload are present";
    }
    const size_t surplus = content.size() - zelkm::kHeaderLen - there;
    return surplus == 0 ? "" : std::to_string(surplus) + " bytes after the payload";
}

// What is to be said about the rows of a plaintext; empty when there is nothing.
std::string aboutRows(const StoreRows& stored, const StoreHeader& header) {
    if (!stored.whole || stored.count != header.row_count) {
        return "the payload is not " + std::to_string(header.row_count) + " rows and a NUL";
    }
    return stored.count <= kShownRows ? ""
                                      : "only the first " + std::to_string(kShownRows) + " of " +
                                            std::to_string(stored.count) + " rows are shown";
}

void printStore(const std::string& content) {
    const std::optional<StoreHeader> header = parseStoreHeader(content);
    if (!header) {
        std::cout << "  shorter than a header\n";
        return;
    }
    std::cout << "  magic        \"" << escape(header->magic) << "\" (version "
              << versionOf(header->magic) << ")\n"
              << "  flags        " << header->flags
              << (header->encrypted() ? " (encrypted)" : " (plaintext)") << '\n'
              << "  tag          " << hex(header->tag) << '\n'
              << "  iv           " << hex(header->iv) << '\n'
              << "  row_count    " << header->row_count << '\n'
              << "  payload_len  " << header->payload_len << '\n';
    const std::string lengths = lengthsOf(content, *header);
    if (!lengths.empty()) {
        std::cout << "  " << lengths << '\n';
    }
    if (header->encrypted()) {
        return;
    }
    const StoreRows stored = parseStoreRows(storePayload(content, *header), *header, kShownRows);
    printTable(std::cout, {{kColumnNames.begin(), kColumnNames.end()}, stored.rows});
    if (const std::string problem = aboutRows(stored, *header); !problem.empty()) {
        std::cout << "  " << problem << '\n';
    }
}

Json storeJson(const std::string& content) {
    const std::optional<StoreHeader> header = parseStoreHeader(content);
    if (!header) {
        return {{"problem", "shorter than a header"}};
    }
    Json json = {{"magic", escape(header->magic)},
                 {"version", versionOf(header->magic)},
                 {"flags", header->flags},
                 {"encrypted", header->encrypted()},
                 {"tag", hex(header->tag)},
                 {"iv", hex(header->iv)},
                 {"row_count", header->row_count},
                 {"payload_len", header->payload_len},
                 {"problem", lengthsOf(content, *header)}};
    if (header->encrypted()) {
        return json;
    }
    const StoreRows stored = parseStoreRows(storePayload(content, *header), *header, kShownRows);
    json["rows"] = Json::array();
    for (const auto& row : stored.rows) {
        json["rows"].emplace_back();
        for (size_t i = 0; i < row.size(); ++i) {
            json["rows"].back()[std::string(kColumnNames[i])] = escape(row[i]);
        }
    }
    if (const std::string problem = aboutRows(stored, *header); !problem.empty()) {
        json["problem"] = problem;
    }
    return json;
}

// Describes which key file the digest matches.
std::string describeDigest(const StoreFiles& files) {
    const auto digest = files.find(kKeyDigestFile);
    if (digest == files.end()) {
        return "";
    }
    if (digest->second.size() != kDigestLen) {
        return "not 32 bytes long: treated as missing";
    }
    const std::string key = keyOfDigest(files);
    if (key == kKeyFile) {
        return "matches edbk";
    }
    const std::string current = files.count(kKeyFile) == 0 ? "" : "does NOT match edbk";
    if (key.empty()) {
        return current.empty() ? "matches no key file" : current;
    }
    return current + (current.empty() ? "" : ": ") + "matches " + key;
}

// The last lines of an error file, without its byte order mark.
std::vector<std::string> lastLines(std::string_view rest) {
    if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest.remove_prefix(kByteOrderMark.size());
    }
    std::vector<std::string> lines;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        lines.push_back(escape(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    lines.erase(lines.begin(),
                lines.end() - static_cast<ptrdiff_t>(std::min(lines.size(), kErrorLines)));
    return lines;
}

std::vector<std::string> shownNames() {
    std::vector<std::string> names = storeNames();
    names.insert(names.end(), std::rbegin(kErrorFiles), std::rend(kErrorFiles));
    return names;
}

bool isErrorFile(const std::string& name) {
    return std::find(std::begin(kErrorFiles), std::end(kErrorFiles), name) != std::end(kErrorFiles);
}

bool isStore(const std::string& name) {
    return name.rfind(kStoreFile, 0) == 0;
}

void printFile(const std::string& name, const Evidence& evidence) {
    std::cout << name << ": ";
    const auto found = evidence.files.find(name);
    if (found == evidence.files.end()) {
        std::cout << "none\n";
        return;
    }
    const FileEvidence& file = found->second;
    std::cout << (file.content ? "" : "unreadable (" + file.problem + "); ")
              << describe(file.status) << '\n';
    if (!file.content) {
        return;
    }
    if (isStore(name)) {
        printStore(*file.content);
    } else if (isErrorFile(name)) {
        for (const std::string& line : lastLines(*file.content)) {
            std::cout << "  " << line << '\n';
        }
    } else if (name == kKeyDigestFile) {
        std::cout << "  " << describeDigest(evidence.storeFiles()) << '\n';
    }
}

Json fileJson(const std::string& name, const Evidence& evidence) {
    const FileEvidence& file = evidence.files.at(name);
    Json json = describeJson(name, file.status);
    if (!file.content) {
        json["unreadable"] = file.problem;
    } else if (isStore(name)) {
        json["store"] = storeJson(*file.content);
    } else if (isErrorFile(name)) {
        json["last_lines"] = lastLines(*file.content);
    }
    return json;
}

}  // namespace

void printInfo(const Directory& directory, bool json) {
    const Evidence evidence = collectEvidence(directory);
    const auto known_level = keyLevel(directory);
    const std::string level = known_level ? std::to_string(*known_level) : "";
    if (!json) {
        for (const std::string& name : shownNames()) {
            printFile(name, evidence);
        }
        std::cout << (level.empty() ? "" : "level of the key: " + level + "\n");
        return;
    }
    Json object = {{"directory", escape(directory.path())},
                   {"key_of_digest", keyOfDigest(evidence.storeFiles())},
                   {"digest", describeDigest(evidence.storeFiles())},
                   {"key_level", level},
                   {"files", Json::array()}};
    for (const std::string& name : shownNames()) {
        if (evidence.files.count(name) != 0) {
            object["files"].push_back(fileJson(name, evidence));
        }
    }
    std::cout << jsonText(object.dump(2)) << '\n';
}

}  // namespace zelkm_tool
