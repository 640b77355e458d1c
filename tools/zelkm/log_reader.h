// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads logs into events: error files, logcat dumps in any of their formats, the library's lines on
// standard error. Pure functions of bytes that anybody may have written; they take linear time.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "log_line.h"
#include "message_match.h"

namespace zelkm_tool {

struct LogEvent {
    const Message* message = nullptr;    // never null
    std::vector<std::string> arguments;  // of the format's conversions, as texts
    std::string text;                    // the message as it was logged
    LogTime time;
    uint64_t source_line = 0;  // of the logging statement
    std::string thread;        // its number; empty but for lines of an error file
    bool in_error_file = false;
    size_t input = 0;  // which of the inputs
    size_t line = 0;   // where in it, counted from 1
    // How often an error file has the line in a row, time and thread included: each object of a
    // process repeats every line of that process.
    size_t count = 1;
};

// Lines that are no event.
struct OtherLines {
    size_t count = 0;
    size_t input = 0;  // of the first one
    size_t line = 0;
    std::string text;  // its first 200 bytes
};

struct Log {
    std::vector<LogEvent> events;
    OtherLines unknown;  // the library's by their form, with a message that is none of the table
    OtherLines foreign;  // by others
};

// Reads several texts one after the other, rolled files oldest first. Blank lines do not count.
Log readLog(const std::vector<std::string_view>& inputs);

// Puts the events in order of time, when all have times of one clock. Equal times stay in order.
void sortByTime(std::vector<LogEvent>* events);

// The messages that a text can be: a whole line or a message, formatted or not; failing that, those
// with the text somewhere in their format. The ones with most literal bytes win.
std::vector<FoundMessage> findMessages(std::string_view text);

}  // namespace zelkm_tool
