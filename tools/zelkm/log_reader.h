// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads logs into events: error files, logcat dumps, and the library's lines on standard error. Any
// bytes are taken, in linear time and, however long a log is, in little memory.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messages.h"

namespace zelkm_tool {

// A line of the library, in any of the formats that logs have.
struct LogLine {
    char level;  // as Message has it; so is the source
    std::string source;
    std::string text;  // the message
    std::string time;  // as it stands in the line; empty for none
    bool in_error_file;
};

// Takes apart a line that has no escape sequences any more; see withoutEscapes(). Nothing when the
// line is not the library's.
std::optional<LogLine> parseLogLine(const std::string& line);

// The line without its escape sequences ("\033[31m"), and without what other systems put at its
// end: carriage returns and NULs.
std::string withoutEscapes(std::string_view line);

struct LogEvent : FoundMessage {
    std::string text;  // the message as it was logged
    std::string time;  // as it stands in the line; empty for none
    bool in_error_file = false;
    size_t input = 0;  // index of the input
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

class LogReader {
  public:
    // Takes the events in the order of the log.
    using Take = std::function<void(const LogEvent&)>;

    explicit LogReader(Take take) : take_(std::move(take)) {}

    // Reads the next piece of an input, of any length. Blank lines do not count.
    void read(std::string_view piece);

    // Ends an input. Several inputs are one log, the oldest first.
    void endInput();

    // Ends the log. The last events are taken here at the latest.
    void end();

    const OtherLines& unknown() const { return unknown_; }  // of the library's form
    const OtherLines& foreign() const { return foreign_; }  // of other programs

  private:
    struct Line {
        std::string text;
        size_t number;
    };

    void readLine(std::string_view raw);
    void flush();
    void keep(LogEvent event, const std::string& line);
    void count(const Line& line);

    const Take take_;
    OtherLines unknown_;
    OtherLines foreign_;
    size_t input_ = 0;
    size_t line_number_ = 0;
    std::string partial_;  // the line that is not complete yet

    // A line of the library, and the next lines, which may continue its message.
    std::optional<LogLine> open_;
    std::vector<Line> lines_;

    LogEvent kept_;          // the last event, as long as it may come once more
    std::string kept_line_;  // its whole line, if it was in an error file
};

// The messages that a text can be. The text is a whole line or a message, with or without its
// values. If it is neither, the result is the messages whose format contains the text.
std::vector<FoundMessage> findMessages(std::string_view text);

}  // namespace zelkm_tool
