// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The function that replaces liblog's, and the form in which it keeps the lines.

#include "log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "failing_memory.h"

namespace {

std::vector<std::string>& lines() {
    static std::vector<std::string> captured;
    return captured;
}

struct Level {
    int priority;
    char letter;
    const char* prefix;
};

constexpr Level kLevels[] = {{ANDROID_LOG_ERROR, 'E', "[\033[31mERR\033[0m] "},
                             {ANDROID_LOG_WARN, 'W', "[WRN] "},
                             {ANDROID_LOG_DEBUG, 'D', "[DBG] "}};

// Removes `prefix` from the front of the text, if it is there.
bool take(std::string* text, const std::string& prefix) {
    if (text->compare(0, prefix.size(), prefix) != 0) {
        return false;
    }
    text->erase(0, prefix.size());
    return true;
}

std::string withoutAddresses(std::string text) {
    unsigned long long before = 0;
    for (size_t at = 0; (at = text.find("0x", at)) != text.npos; at += 2) {
        const size_t end =
            std::min(text.find_first_not_of("0123456789abcdef", at + 2), text.size());
        if (end - at >= 8) {
            const unsigned long long address = std::stoull(text.substr(at, end - at), nullptr, 16);
            text.replace(at, end - at, address >= before ? "ADDR" : "LOWER");
            before = address;
        }
    }
    return text;
}

std::string readable(int priority, const std::string& tag, const std::string& line) {
    const auto level = std::find_if(std::begin(kLevels), std::end(kLevels),
                                    [&](const Level& l) { return l.priority == priority; });
    std::string text = line;
    if (level == std::end(kLevels) || tag != "keymaster_tee" || !take(&text, level->prefix)) {
        return "malformed: " + line;
    }
    std::string source = " object: ";
    if (take(&text, "(velt_secure_db.cpp:")) {
        source = " engine: ";
    } else if (!take(&text, "(zelkeymaster_operation.cpp:")) {
        return "malformed: " + line;
    }
    const size_t digits = text.find_first_not_of("0123456789");
    if (digits == 0 || text.compare(digits, 2, ") ") != 0) {
        return "malformed: " + line;
    }
    return level->letter + source + withoutAddresses(text.substr(digits + 2));
}

}  // namespace

// Replaces the function of liblog for the whole program, the shared library included.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    const test::AllocationsWork logging;
    va_list args;
    va_start(args, format);
    va_list counting;
    va_copy(counting, args);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, counting)) + 1, '\0');
    va_end(counting);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    text.pop_back();
    if (priority == ANDROID_LOG_FATAL) {
        // Death tests look for it there.
        std::fprintf(stderr, "%s\n", text.c_str());
    }
    lines().push_back(readable(priority, tag, text));
    return 1;
}

namespace test {

Lines log() {
    return lines();
}

Lines errors() {
    Lines result = log();
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](const std::string& line) { return line.rfind("D ", 0) == 0; }),
                 result.end());
    return result;
}

bool logged(const std::string& line) {
    const Lines all = log();
    return std::find(all.begin(), all.end(), line) != all.end();
}

void clearLog() {
    lines().clear();
}

}  // namespace test
