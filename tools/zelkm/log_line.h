// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One line of a log, taken apart: what stands around the library's message.

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
    // Microseconds since 1970-01-01 00:00 (kLocal: as if that were UTC), since the device started,
    // or, without a year, since the new year of 1972; a later year follows when a log passes the
    // end of December.
    int64_t micros = 0;
    std::string text;  // as it stands in the line
};

// A line of the library, in whatever format a log has it.
struct LogLine {
    Level level;
    Source source;
    uint64_t source_line;   // of the logging statement
    std::string_view text;  // the message
    LogTime time;
    std::string_view thread;  // its number; empty but for lines of an error file
    bool in_error_file;
};

// Takes a line apart that has no terminal escapes any more (see withoutEscapes()); nothing when it
// is none of the library's. The views are into `line`.
std::optional<LogLine> parseLogLine(std::string_view line);

// The first time in the first bytes of a line.
LogTime findTime(std::string_view line);

// The line without its escape sequences ("\033[31m") and the carriage return at its end.
std::string withoutEscapes(std::string_view line);

}  // namespace zelkm_tool
