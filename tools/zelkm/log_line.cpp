// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "log_line.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace zelkm_tool {
namespace {

constexpr size_t kMaxPrefixLen = 128;  // how much other programs may put before a message
constexpr int64_t kMicrosPerSecond = 1000000;
constexpr size_t kMicroDigits = 6;
constexpr size_t kMinEpochDigits = 9;  // fewer digits are seconds since the start of the device

// Reads a text from the front. A function that does not find what it wants leaves the position as
// it was.
struct Cursor {
    std::string_view rest;

    bool literal(std::string_view text) {
        const bool fits = rest.substr(0, text.size()) == text;
        rest.remove_prefix(fits ? text.size() : 0);
        return fits;
    }
    std::string_view digits() {
        const size_t end = std::min(rest.find_first_not_of("0123456789"), rest.size());
        const std::string_view result = rest.substr(0, end);
        rest.remove_prefix(end);
        return result;
    }
    // A number of exactly `num_digits` digits. False when there is none, or when it is not from
    // `min` to `max`.
    bool number(size_t num_digits, int min, int max, int* value) {
        Cursor ahead = *this;
        const std::string_view text = ahead.digits();
        if (text.size() != num_digits) {
            return false;
        }
        *value = std::stoi(std::string(text));
        *this = ahead;
        return *value >= min && *value <= max;
    }
};

uint64_t toNumber(std::string_view digits) {
    constexpr size_t kMaxDigits = 18;
    return std::stoull("0" + std::string(digits.substr(0, kMaxDigits)));
}

// Takes a fraction such as ".951" off the text, in microseconds; 0 if there is none.
int64_t takeFraction(Cursor* in) {
    Cursor ahead = *in;
    if (!ahead.literal(".")) {
        return 0;
    }
    std::string fraction(ahead.digits());
    if (fraction.empty()) {
        return 0;
    }
    *in = ahead;
    fraction.resize(kMicroDigits, '0');
    return std::stoll(fraction);
}

// Takes a zone such as " +0100" off the text, in minutes.
std::optional<int> takeZone(Cursor* in) {
    Cursor ahead = *in;
    if (!ahead.literal(" ")) {
        return std::nullopt;
    }
    const bool negative = ahead.literal("-");
    int hours_and_minutes = 0;
    constexpr int kMaxZone = 1400;
    if ((!negative && !ahead.literal("+")) || !ahead.number(4, 0, kMaxZone, &hours_and_minutes)) {
        return std::nullopt;
    }
    *in = ahead;
    const int minutes = hours_and_minutes / 100 * 60 + hours_and_minutes % 100;
    return negative ? -minutes : minutes;
}

// Reads "[2026-]11-21 15:20:56[.951][ +0100]" at the front of the text.
std::optional<LogTime> parseDate(std::string_view text) {
    constexpr int kFirstYear = 1970;
    constexpr int kLeapYear = 1972;
    Cursor in = {text};
    LogTime result;
    int year = kLeapYear;
    Cursor with_year = in;
    result.clock = Clock::kYearless;
    if (with_year.number(4, kFirstYear, 9999, &year) && with_year.literal("-")) {
        result.clock = Clock::kLocal;
        in = with_year;
    }
    std::tm date = {};
    if (!in.number(2, 1, 12, &date.tm_mon) || !in.literal("-") ||
        !in.number(2, 1, 31, &date.tm_mday) || !in.literal(" ") ||
        !in.number(2, 0, 23, &date.tm_hour) || !in.literal(":") ||
        !in.number(2, 0, 59, &date.tm_min) || !in.literal(":") ||
        !in.number(2, 0, 60, &date.tm_sec)) {
        return std::nullopt;
    }
    date.tm_year = year - 1900;
    date.tm_mon -= 1;
    result.micros = ::timegm(&date) * kMicrosPerSecond + takeFraction(&in);
    if (const auto zone = takeZone(&in)) {
        result.micros -= *zone * 60 * kMicrosPerSecond;
        result.clock = result.clock == Clock::kLocal ? Clock::kUtc : result.clock;
    }
    result.text = text.substr(0, text.size() - in.rest.size());
    return result;
}

// Reads seconds with a fraction before the first blank. They count from 1970 or from the device's
// start.
LogTime parseSeconds(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    Cursor in = {text};
    const std::string_view seconds = in.digits();
    constexpr size_t kMaxDigits = 11;
    LogTime result;
    const bool has_fraction = in.rest.substr(0, 1) == ".";
    const int64_t fraction = takeFraction(&in);
    if (seconds.empty() || seconds.size() > kMaxDigits || !has_fraction || !in.literal(" ")) {
        return result;
    }
    result.clock = seconds.size() >= kMinEpochDigits ? Clock::kUtc : Clock::kSinceBoot;
    result.micros = static_cast<int64_t>(toNumber(seconds)) * kMicrosPerSecond + fraction;
    result.text = text.substr(0, text.size() - in.rest.size() - 1);
    return result;
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
    LogLine result = {};
    const auto level = levelBefore(line.substr(0, at - 2));
    Cursor in = {line.substr(at)};
    in.literal(sourceName(source));
    in.literal(":");
    const std::string_view number = in.digits();
    if (!level || number.empty() || !in.literal(") ")) {
        return std::nullopt;
    }
    result.level = *level;
    result.source = source;
    result.source_line = toNumber(number);
    result.text = in.rest;
    result.time = findTime(line.substr(0, at));
    // logcat's format "process" puts the tag behind the message.
    constexpr std::string_view kTagBehind = "  (keymaster_tee)";
    const size_t start = result.text.size() - std::min(result.text.size(), kTagBehind.size());
    if (line.substr(1, 1) == "(" && result.text.substr(start) == kTagBehind) {
        result.text.remove_suffix(kTagBehind.size());
    }
    return result;
}

// Reads "2026-11-21 15:20:56.951 WARN  [123] [log_to_file@102] zelkeymaster_operation.cpp(803)
// :text". The last bracket stands at `at`.
std::optional<LogLine> parseErrorFileLine(std::string_view line, size_t at) {
    LogLine result = {};
    std::string_view before = line.substr(0, at);
    const size_t thread = before.rfind(" [");
    if (thread == before.npos || before.back() != ']') {
        return std::nullopt;
    }
    Cursor thread_in = {before.substr(thread + 2)};
    result.thread = thread_in.digits();
    before = before.substr(0, before.find_last_not_of(' ', thread) + 1);
    constexpr std::string_view kError = " ERROR";
    constexpr std::string_view kWarning = " WARN";
    const auto ends = [&before](std::string_view end) {
        return before.size() > end.size() && before.substr(before.size() - end.size()) == end;
    };
    Cursor in = {line.substr(at)};
    in.literal(" [log_to_file@");
    in.digits();
    if (result.thread.empty() || (!ends(kError) && !ends(kWarning)) || !in.literal("] ") ||
        !in.literal(sourceName(Source::kObject)) || !in.literal("(")) {
        return std::nullopt;
    }
    const std::string_view number = in.digits();
    if (number.empty() || !in.literal(") :")) {
        return std::nullopt;
    }
    result.level = ends(kError) ? Level::kError : Level::kWarning;
    result.source = Source::kObject;
    result.source_line = toNumber(number);
    result.text = in.rest;
    result.time = findTime(before);
    result.in_error_file = true;
    return result;
}

}  // namespace

LogTime findTime(std::string_view line) {
    line = line.substr(0, kMaxPrefixLen);
    constexpr std::string_view kDigits = "0123456789";
    for (size_t at = 0; at < line.size(); ++at) {
        const bool starts = kDigits.find(line[at]) != kDigits.npos &&
                            (at == 0 || kDigits.find(line[at - 1]) == kDigits.npos);
        if (!starts) {
            continue;
        }
        if (auto date = parseDate(line.substr(at))) {
            return *std::move(date);
        }
    }
    return parseSeconds(line);
}

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
    if (!result.empty() && result.back() == '\r') {
        result.pop_back();
    }
    return result;
}

}  // namespace zelkm_tool
