// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Writes changes to a store directory as commands for a device's shell; see doctor_facts.h.

#include <algorithm>
#include <cstdio>
#include <set>

#include "doctor_facts.h"
#include "session.h"

namespace zelkm_tool {
namespace {

std::string octal(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char digits[8];
        std::snprintf(digits, sizeof(digits), "\\%03o", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

// Adds the commands that turn the bytes `from` of a file into `to`, which is never longer: they
// write the bytes that differ, and cut the file.
void patch(const std::string& file, const std::string& from, const std::string& to,
           std::vector<std::string>* commands) {
    for (size_t at = 0; at < to.size();) {
        size_t end = at;
        while (end < to.size() && from[end] != to[end]) {
            ++end;
        }
        if (end != at) {
            commands->push_back("printf '" + octal(to.substr(at, end - at)) + "' | dd of=" + file +
                                " bs=1 seek=" + std::to_string(at) + " conv=notrunc");
        }
        at = std::max(end, at + 1);
    }
    if (from.size() > to.size()) {
        commands->push_back("truncate -s " + std::to_string(to.size()) + " " + file);
    }
}

}  // namespace

std::vector<std::string> shellCommands(const StoreFiles& files,
                                       const std::vector<Change>& changes) {
    std::vector<std::string> commands;
    std::set<std::string> moved;
    for (const Change& change : changes) {
        const auto source = files.find(change.source);
        if (!change.content) {
            if (moved.count(change.file) == 0) {
                commands.push_back("rm " + change.file);
            }
        } else if (source == files.end()) {
            // A missing file starts as a copy of another one, so that it gets that one's owner and
            // mode.
            const std::string like = files.count(change.file) != 0 ? "" : kKeyFile;
            if (!like.empty()) {
                commands.push_back("cp -a " + like + " " + change.file);
            }
            commands.push_back("printf '" + octal(*change.content) + "' > " + change.file);
        } else {
            if (change.source == change.file + kTemporarySuffix) {
                commands.push_back("mv " + change.source + " " + change.file);
                moved.insert(change.source);
            } else if (change.source != change.file) {
                commands.push_back("cp -a " + change.source + " " + change.file);
            }
            patch(change.file, source->second, *change.content, &commands);
        }
    }
    if (commands.empty()) {
        return {};
    }
    std::string copy = "mkdir -m 700 doctor-by-hand && cp -a";
    for (const auto& [name, content] : files) {
        copy += " " + name;
    }
    commands.insert(commands.begin(), copy + " doctor-by-hand/");
    return commands;
}

}  // namespace zelkm_tool
