// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Takes one line of a log apart, into the library's message and what stands around it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "messages.h"

namespace zelkm_tool {

// What a time counts from. Times of different clocks cannot be compared.
enum class Clock {
    kNone,       // the line has no time
    kLocal,      // a date without a zone: the local time of whoever wrote it
    kUtc,        // a date with a zone, or seconds since 1970
    kYearless,   // a local date without a year
    kSinceBoot,  // seconds since the device started
};

struct LogTime {
    Clock clock = Clock::kNone;
    // Microseconds since 1970-01-01 00:00 (kLocal: as if the local time were UTC), or since the
    // device started. A date without a year counts from the start of 1972; when a log goes from
    // December to January, the reader of the log adds a year.
    int64_t micros = 0;
    std::string text;  // as it stands in the line
};

// A line of the library, in any of the formats that logs have.
struct LogLine {
    Level level;
    Source source;
    uint64_t source_line;   // of the logging statement
    std::string_view text;  // the message
    LogTime time;
    std::string_view thread;  // its number; empty but for lines of an error file
    bool in_error_file;
};

// Takes apart a line that has no escape sequences any more; see withoutEscapes(). Nothing when the
// line is not the library's. The views point into `line`.
std::optional<LogLine> parseLogLine(std::string_view line);

// The first time that stands near the start of a line.
LogTime findTime(std::string_view line);

// The line without its escape sequences ("\033[31m") and without a carriage return at its end.
std::string withoutEscapes(std::string_view line);

}  // namespace zelkm_tool
