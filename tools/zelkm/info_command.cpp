// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory. See info_command.h.

#include "info_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "files.h"
#include "output.h"
#include "session.h"
#include "store_file.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr size_t kErrorLines = 10;
constexpr size_t kDigestLen = 32;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // begins an error file

// The content, or nothing after a line that says why: a damaged directory is what this is for.
std::optional<std::string> readAndSay(const std::filesystem::path& path) {
    std::cout << path.filename().string() << ": ";
    try {
        std::optional<std::string> content = readFileIfThere(path);
        std::cout << (content ? std::to_string(content->size()) + " bytes" : "none") << '\n';
        return content;
    } catch (const Refused& refused) {
        std::cout << "unreadable (" << refused.what() << ")\n";
        return std::nullopt;
    }
}

std::string versionOf(const std::string& magic) {
    if (magic == "SOBv1.1     ") {
        return "1.1";
    }
    return magic == "SOBv1.0     " ? "1.0" : "unknown, read as 1.1";
}

void printStore(const std::filesystem::path& path) {
    const std::optional<std::string> content = readAndSay(path);
    if (!content) {
        return;
    }
    const std::optional<StoreHeader> header = parseStoreHeader(*content);
    if (!header) {
        std::cout << "  shorter than a header\n";
        return;
    }
    const std::string_view payload = storePayload(*content, *header);
    std::cout << "  magic        \"" << escape(header->magic) << "\" (version "
              << versionOf(header->magic) << ")\n"
              << "  flags        " << header->flags
              << (header->encrypted() ? " (encrypted)" : " (plaintext)") << '\n'
              << "  tag          " << hex(header->tag) << '\n'
              << "  iv           " << hex(header->iv) << '\n'
              << "  row_count    " << header->row_count << '\n'
              << "  payload_len  " << header->payload_len << '\n';
    const char* const file_end = content->data() + content->size();
    const auto surplus = file_end - (payload.data() + payload.size());
    if (payload.size() < header->payload_len) {
        std::cout << "  the file is cut: " << payload.size() << " bytes of the payload are there\n";
    } else if (surplus != 0) {
        std::cout << "  " << surplus << " bytes after the payload\n";
    }
    if (header->encrypted()) {
        return;
    }
    const StoreRows stored = parseStoreRows(payload, *header);
    printTable(std::cout, {{kColumnNames.begin(), kColumnNames.end()}, stored.rows});
    if (!stored.problem.empty()) {
        std::cout << "  " << stored.problem << '\n';
    }
}

void printKey(const std::filesystem::path& dir) {
    const std::optional<std::string> blob = readAndSay(dir / kKeyFile);
    const std::optional<std::string> digest = readAndSay(dir / kKeyDigestFile);
    if (!blob || !digest) {
        return;
    }
    if (digest->size() != kDigestLen) {
        std::cout << "  not " << kDigestLen << " bytes long: counts as missing\n";
    } else if (*digest == sha256(*blob)) {
        std::cout << "  matches " << kKeyFile << '\n';
    } else {
        std::cout << "  does NOT match " << kKeyFile << '\n';
    }
}

void printErrors(const std::filesystem::path& dir) {
    const std::optional<std::string> content = readAndSay(dir / kErrorFile);
    if (!content) {
        return;
    }
    std::string_view rest = *content;
    if (rest.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        rest.remove_prefix(kByteOrderMark.size());
    }
    std::vector<std::string_view> lines;
    while (!rest.empty()) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        lines.push_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const size_t first = lines.size() - std::min(lines.size(), kErrorLines);
    for (size_t i = first; i < lines.size(); ++i) {
        std::cout << "  " << escape(lines[i]) << '\n';
    }
}

}  // namespace

void printInfo(const std::string& dir) {
    std::error_code error;
    if (!std::filesystem::is_directory(dir, error)) {
        throw Refused("directory " + dir + ": " +
                      (error ? error.message() : std::string("not a directory")));
    }
    for (const char* suffix : {"", ".bak", ".tmp"}) {
        printStore(std::filesystem::path(dir) / (std::string(kStoreFile) + suffix));
    }
    printKey(dir);
    printErrors(dir);
}

}  // namespace zelkm_tool
