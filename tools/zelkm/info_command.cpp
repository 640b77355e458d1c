// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that shows what a store directory contains.

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "bytes.h"
#include "command_line.h"
#include "doctor_report.h"
#include "failure.h"
#include "key_trial.h"
#include "output.h"
#include "store_file.h"
#include "store_names.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Json = nlohmann::ordered_json;

struct InfoOptions {
    std::optional<std::string> dir;
    bool json = false;
};

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

// What a store's header says, what is odd about it, and the rows of a plaintext, which `stored`
// receives, too.
Json describeStore(const std::string& content, StoreRows* stored) {
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
    if (!header->encrypted()) {
        *stored = parseStoreRows(storePayload(content, *header), *header, kShownRows);
        if (const std::string problem = aboutRows(*stored, *header); !problem.empty()) {
            json["problem"] = problem;
        }
        json["rows"] = Json::array();
        for (const auto& row : stored->rows) {
            Json& object = json["rows"].emplace_back();
            for (size_t i = 0; i < row.size(); ++i) {
                object[std::string(kColumnNames[i])] = escape(row[i]);
            }
        }
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
    const bool is_right = key == kKeyFile || files.count(kKeyFile) == 0;
    return (is_right ? "matches " : "does NOT match edbk: matches ") +
           (key.empty() ? "no key file" : key);
}

// The last lines of an error file, without its byte order mark.
std::vector<std::string> lastLines(std::string_view rest) {
    if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest.remove_prefix(kByteOrderMark.size());
    }
    std::vector<std::string> lines;
    std::istringstream text{std::string(rest)};
    for (std::string line; std::getline(text, line);) {
        lines.push_back(escape(line));
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

Json describeFile(const std::string& name, const FileEvidence& file, StoreRows* stored) {
    Json json = describeJson(name, file.status);
    if (!file.content) {
        json["unreadable"] = file.problem;
    } else if (name.rfind(kStoreFile, 0) == 0) {
        json["store"] = describeStore(*file.content, stored);
    } else if (isErrorFile(name)) {
        json["last_lines"] = lastLines(*file.content);
    }
    return json;
}

void printFile(const Json& file, const StoreRows& stored) {
    constexpr size_t kNameWidth = 13;
    std::cout << (file.contains("unreadable") ? "unreadable (" + textOf(file, "unreadable") + "); "
                                              : "")
              << describe(file) << '\n';
    const Json store = file.value("store", Json::object());
    for (const auto& [name, value] : store.items()) {
        if (value != "" && name != "rows") {
            std::cout << "  " << name << std::string(kNameWidth - name.size(), ' ') << value.dump()
                      << '\n';
        }
    }
    if (!stored.rows.empty()) {
        printTable(std::cout, {{kColumnNames.begin(), kColumnNames.end()}, stored.rows});
    }
    for (const Json& line : file.value("last_lines", Json::array())) {
        std::cout << "  " << line.get<std::string>() << '\n';
    }
}

void showInfo(const SessionOptions& session, const InfoOptions& options) {
    const SessionOptions there = withDirectory(session, options.dir);
    const Directory directory(there.dir);
    const DirectoryLock lock(directory, there, DirectoryLock::Mode::kShared);
    const Evidence evidence = collectEvidence(directory);
    const std::optional<uint32_t> level = keyLevel(directory);
    Json json = {{"directory", escape(directory.path())},
                 {"key_of_digest", keyOfDigest(evidence.storeFiles())},
                 {"digest", describeDigest(evidence.storeFiles())},
                 {"key_level", level ? std::to_string(*level) : ""},
                 {"files", Json::array()}};
    for (const std::string& name : shownNames()) {
        if (!options.json) {
            std::cout << name << ": " << (evidence.find(name) == nullptr ? "none\n" : "");
        }
        if (const FileEvidence* file = evidence.find(name)) {
            StoreRows stored = {};
            json["files"].push_back(describeFile(name, *file, &stored));
            if (!options.json) {
                printFile(json["files"].back(), stored);
            }
        }
        if (!options.json && name == kKeyDigestFile && json["digest"] != "") {
            std::cout << "  " << textOf(json, "digest") << '\n';
        }
    }
    if (options.json) {
        std::cout << jsonText(json.dump(2)) << '\n';
    } else if (level) {
        std::cout << "level of the key: " << *level << '\n';
    }
}

}  // namespace

SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir) {
    if (dir == "") {
        throw WrongUsage("the directory name is empty");
    }
    options.dir = dir.value_or(options.dir);
    return options;
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "info", "Show what a store directory contains", showInfo);
    addOption(command, "DIR", options.dir, "", "The directory; default: that of --dir");
    command.add_flag("--json", options.json, "Print one JSON object");
    command.footer(R"(Needs no key. Shows the library's files with their sizes, modes, owners and
times, the header of each version of the store and the rows of a plaintext
payload, which key file edbk_digest matches, the last lines of the error files
and, with the root key of the software keymaster, the patch level of the key.)");
}

}  // namespace zelkm_tool
