// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Any bytes for the tool's reader of logs. Each event must be its message with its arguments. No
// line counts twice. A log that comes in two pieces, or was cut in two before a line of the
// library, has the same events.

#include <algorithm>
#include <vector>

#include "../tools/zelkm/log_reader.h"
#include "fuzz.h"

namespace {

using namespace zelkm_tool;

// The format with the arguments in it.
std::string filled(std::string_view format, const std::vector<std::string>& arguments) {
    std::string text;
    size_t next = 0;
    for (size_t at = 0; at < format.size(); ++at) {
        if (format[at] != '%') {
            text += format[at];
            continue;
        }
        at = format.find_first_of("sdpcux", at);
        const std::string& argument = arguments.at(next++);
        if (format[at] == 'c' && argument.empty()) {
            break;  // a NUL
        }
        text += argument;
    }
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

struct Read {
    std::vector<LogEvent> events;
    size_t num_lines = 0;  // of all kinds
};

// Reads two texts, as two pieces of one input or as two inputs.
Read readLog(std::string_view first, std::string_view second, bool two_inputs) {
    Read result;
    LogReader reader([&result](const LogEvent& event) {
        result.events.push_back(event);
        result.num_lines += event.count;
    });
    reader.read(first);
    if (two_inputs) {
        reader.endInput();
    }
    reader.read(second);
    reader.endInput();
    reader.end();
    result.num_lines += reader.unknown().count + reader.foreign().count;
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::Block block = fuzz::Input(data, size).rest();
    const std::string_view text(block.text(), block.len);
    const Read log = readLog(text, "", false);
    for (const LogEvent& event : log.events) {
        const std::string given = event.text.substr(0, event.text.find_last_not_of('\n') + 1);
        fuzz::require(filled(event.message->format, event.arguments) == given);
    }
    const auto line_feeds = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    fuzz::require(log.num_lines <= line_feeds + 1);
    const Read in_pieces = readLog(text.substr(0, size / 2), text.substr(size / 2), false);
    fuzz::require(in_pieces.events.size() == log.events.size());
    findMessages(text);

    // Nothing that stands before a line of the library can go on in it.
    for (const LogEvent& event : log.events) {
        size_t start = 0;
        for (size_t line = 1; line < event.line; ++line) {
            start = text.find('\n', start) + 1;
        }
        const Read in_two = readLog(text.substr(0, start), text.substr(start), true);
        fuzz::require(in_two.events.size() == log.events.size());
    }
    return 0;
}
