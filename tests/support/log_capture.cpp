// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Captures the platform log. See log_capture.h.

#include "log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <regex>

#include "failing_memory.h"

namespace {

struct Line {
    int priority;
    std::string tag;
    std::string text;
};

std::vector<Line>& lines() {
    static std::vector<Line> captured;
    return captured;
}

const char* prefixOf(int priority) {
    switch (priority) {
        case ANDROID_LOG_ERROR:
            return "[\033[31mERR\033[0m] ";
        case ANDROID_LOG_WARN:
            return "[WRN] ";
        case ANDROID_LOG_DEBUG:
            return "[DBG] ";
        default:
            return nullptr;
    }
}

std::string readable(const Line& line) {
    static const std::regex kOrigin(
        R"(^\((velt_secure_db|zelkeymaster_operation)\.cpp:[1-9][0-9]*\) )");
    static const std::regex kAddress("0x[0-9a-f]{6,}");
    const char* prefix = prefixOf(line.priority);
    std::smatch origin;
    if (prefix == nullptr || line.tag != "keymaster_tee" || line.text.rfind(prefix, 0) != 0) {
        return "malformed: " + line.text;
    }
    const std::string rest = line.text.substr(std::string(prefix).size());
    if (!std::regex_search(rest, origin, kOrigin)) {
        return "malformed: " + line.text;
    }
    const char level = line.priority == ANDROID_LOG_ERROR  ? 'E'
                       : line.priority == ANDROID_LOG_WARN ? 'W'
                                                           : 'D';
    return std::string(1, level) + (origin[1] == "velt_secure_db" ? " engine: " : " object: ") +
           std::regex_replace(origin.suffix().str(), kAddress, "ADDR");
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
        // What death tests look for.
        std::fprintf(stderr, "%s\n", text.c_str());
    }
    lines().push_back({priority, tag, text});
    return 1;
}

namespace test {

std::vector<std::string> log() {
    std::vector<std::string> result;
    for (const Line& line : lines()) {
        result.push_back(readable(line));
    }
    return result;
}

std::vector<std::string> errors() {
    std::vector<std::string> result = log();
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](const std::string& line) { return line.rfind("D ", 0) == 0; }),
                 result.end());
    return result;
}

bool logged(const std::string& line) {
    const std::vector<std::string> all = log();
    return std::find(all.begin(), all.end(), line) != all.end();
}

void clearLog() {
    lines().clear();
}

}  // namespace test
