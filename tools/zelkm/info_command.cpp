// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that shows what a store directory contains.

#include <algorithm>
#include <iostream>
#include <memory>
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

// What a store's header says, and what is odd about it. `stored` receives the rows of a plaintext.
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
    }
    return json;
}

void printStore(const std::string& content) {
    constexpr size_t kNameWidth = 13;
    StoreRows stored = {};
    const Json store = describeStore(content, &stored);
    for (const auto& [name, value] : store.items()) {
        if (value != "") {
            std::cout << "  " << name << std::string(kNameWidth - name.size(), ' ') << value.dump()
                      << '\n';
        }
    }
    if (!stored.rows.empty()) {
        printTable(std::cout, {{kColumnNames.begin(), kColumnNames.end()}, stored.rows});
    }
}

Json storeJson(const std::string& content) {
    StoreRows stored = {};
    Json json = describeStore(content, &stored);
    if (json.value("encrypted", true)) {
        return json;
    }
    json["rows"] = Json::array();
    for (const auto& row : stored.rows) {
        Json& object = json["rows"].emplace_back();
        for (size_t i = 0; i < row.size(); ++i) {
            object[std::string(kColumnNames[i])] = escape(row[i]);
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
              << zelkm_tool::describe(file.status) << '\n';
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

}  // namespace

SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir) {
    if (dir == "") {
        throw WrongUsage("the directory name is empty");
    }
    options.dir = dir.value_or(options.dir);
    return options;
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::optional<std::string>>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("info", "Show what a store directory contains");
    command->add_option("DIR", *dir, "The directory; default: that of --dir")->type_name("");
    command->add_flag("--json", *json, "Print one JSON object");
    command->footer(R"(Needs no key. Shows the library's files with their sizes, modes, owners and
times, the header of each version of the store and the rows of a plaintext
payload, which key file edbk_digest matches, the last lines of the error files
and, with the root key of the software keymaster, the patch level of the key.)");
    command->callback([&session, dir, json] {
        const SessionOptions options = withDirectory(session, *dir);
        const Directory directory(options.dir);
        const DirectoryLock lock(directory, options, DirectoryLock::Mode::kShared);
        printInfo(directory, *json);
    });
}

}  // namespace zelkm_tool
