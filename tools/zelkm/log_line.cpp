// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "log_reader.h"

#include <algorithm>
#include <utility>

namespace zelkm_tool {
namespace {

constexpr std::string_view kDigits = "0123456789";

// Takes a text off the front. False, and `rest` is as it was, when something else is there.
bool take(std::string_view* rest, std::string_view text) {
    const bool fits = rest->substr(0, text.size()) == text;
    rest->remove_prefix(fits ? text.size() : 0);
    return fits;
}

bool takeDigits(std::string_view* rest) {
    const size_t end = std::min(rest->find_first_not_of(kDigits), rest->size());
    rest->remove_prefix(end);
    return end != 0;
}

// Whether a text begins like the pattern, in which 0 stands for any digit.
bool beginsLike(std::string_view text, std::string_view pattern) {
    return text.size() >= pattern.size() &&
           std::equal(pattern.begin(), pattern.end(), text.begin(), [](char expected, char c) {
               return expected == '0' ? kDigits.find(c) != kDigits.npos : c == expected;
           });
}

// The first "[2026-]11-21 15:20:56[.951][ +0100]" near the start of a line.
std::string_view findTime(std::string_view line) {
    constexpr size_t kMaxPrefixLen = 128;  // how much other programs may put before a message
    constexpr std::string_view kYear = "0000-";
    constexpr std::string_view kTime = "00-00 00:00:00";
    line = line.substr(0, kMaxPrefixLen);
    for (; !line.empty(); line.remove_prefix(1)) {
        const size_t year = beginsLike(line, kYear) ? kYear.size() : 0;
        if (!beginsLike(line.substr(year), kTime)) {
            continue;
        }
        std::string_view rest = line.substr(year + kTime.size());
        if (take(&rest, ".")) {
            takeDigits(&rest);
        }
        for (const std::string_view zone : {" +0000", " -0000"}) {
            rest.remove_prefix(beginsLike(rest, zone) ? zone.size() : 0);
        }
        return line.substr(0, line.size() - rest.size());
    }
    return {};
}

constexpr std::pair<const char*, Level> kPrefixes[] = {
    {"ERR", Level::kError}, {"WRN", Level::kWarning}, {"DBG", Level::kDebug}};

// The level in "…[ERR]". Parts of removed escape sequences may stand around it.
std::optional<Level> levelBefore(std::string_view before) {
    constexpr size_t kWindow = 28;
    if (before.empty() || before.back() != ']') {
        return std::nullopt;
    }
    before.remove_prefix(before.size() - std::min(before.size(), kWindow));
    for (const auto& [word, level] : kPrefixes) {
        const size_t at = before.rfind(word);
        if (at != before.npos && before.find('[') < at) {
            return level;
        }
    }
    return std::nullopt;
}

// Reads "… [ERR] (velt_secure_db.cpp:123) message". The base name stands at `at`.
std::optional<LogLine> parsePlatformLine(std::string_view line, size_t at, Source source) {
    const auto level = levelBefore(line.substr(0, at - 2));
    std::string_view rest = line.substr(at);
    if (!level || !take(&rest, sourceName(source)) || !take(&rest, ":") || !takeDigits(&rest) ||
        !take(&rest, ") ")) {
        return std::nullopt;
    }
    return LogLine{*level, source, rest, findTime(line.substr(0, at)), false};
}

// Reads "2026-11-21 15:20:56.951 WARN  [123] [log_to_file@102] zelkeymaster_operation.cpp(803)
// :text". The last bracket stands at `at`.
std::optional<LogLine> parseErrorFileLine(std::string_view line, size_t at) {
    std::string_view before = line.substr(0, at);
    const size_t thread = before.rfind(" [");
    if (thread == before.npos) {
        return std::nullopt;
    }
    std::string_view rest = before.substr(thread + 2);
    const bool has_thread = takeDigits(&rest) && rest == "]";
    before = before.substr(0, before.find_last_not_of(' ', thread) + 1);
    const auto ends = [&before](std::string_view end) {
        return before.size() > end.size() && before.substr(before.size() - end.size()) == end;
    };
    const bool is_error = ends(" ERROR");
    rest = line.substr(at);
    if (!has_thread || (!is_error && !ends(" WARN")) || !take(&rest, " [log_to_file@") ||
        !takeDigits(&rest) || !take(&rest, "] ") || !take(&rest, sourceName(Source::kObject)) ||
        !take(&rest, "(") || !takeDigits(&rest) || !take(&rest, ") :")) {
        return std::nullopt;
    }
    return LogLine{is_error ? Level::kError : Level::kWarning, Source::kObject, rest,
                   findTime(before), true};
}

}  // namespace

std::optional<LogLine> parseLogLine(std::string_view line) {
    // The part that comes first belongs to the line. A message may quote the others.
    size_t first = line.find(" [log_to_file@");
    std::optional<Source> platform;
    for (const Source source : {Source::kObject, Source::kEngine}) {
        const size_t at = line.find(" (" + std::string(sourceName(source)) + ":");
        if (at < first) {
            first = at;
            platform = source;
        }
    }
    if (first == line.npos) {
        return std::nullopt;
    }
    return platform ? parsePlatformLine(line, first + 2, *platform)
                    : parseErrorFileLine(line, first);
}

std::string withoutEscapes(std::string_view line) {
    std::string result;
    result.reserve(line.size());
    for (size_t at = 0; at < line.size(); ++at) {
        if (line.substr(at, 2) == "\033[") {
            const size_t end = line.find_first_not_of("0123456789;?", at + 2);
            if (end != line.npos && line[end] >= '@' && line[end] <= '~') {
                at = end;
                continue;
            }
        }
        result += line[at];
    }
    result.resize(result.find_last_not_of(std::string_view("\r\0", 2)) + 1);
    return result;
}

}  // namespace zelkm_tool
