// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads logs into events: error files, logcat dumps in any format, and the library's lines on
// standard error. These are pure functions of untrusted bytes, and take linear time.

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
    std::vector<std::string> arguments;  // the values of the format's conversions, as texts
    std::string text;                    // the message as it was logged
    LogTime time;
    uint64_t source_line = 0;  // line number of the logging statement
    std::string thread;        // its number; empty but for lines of an error file
    bool in_error_file = false;
    size_t input = 0;  // index of the input text
    size_t line = 0;   // line in that input, counted from 1
    // How often the line stands in a row in an error file, with equal time and thread. Each object
    // of a process writes every line once more.
    size_t count = 1;
};

// Lines that are no events.
struct OtherLines {
    size_t count = 0;
    size_t input = 0;  // of the first line; so are the members below
    size_t line = 0;
    std::string text;  // the first 200 bytes of it
};

struct Log {
    std::vector<LogEvent> events;
    OtherLines unknown;  // lines of the library's form, with a message that is not in the table
    OtherLines foreign;  // lines of other programs
};

// Reads several texts in their order. Rolled files come oldest first. Blank lines do not count.
Log readLog(const std::vector<std::string_view>& inputs);

// Sorts the events by time, if all times are of one clock. Events with equal times keep their
// order.
void sortByTime(std::vector<LogEvent>* events);

// The messages that a text can be. The text is a whole line or a message, with or without its
// values. If it is neither, the result is the messages whose format contains the text.
std::vector<FoundMessage> findMessages(std::string_view text);

}  // namespace zelkm_tool
