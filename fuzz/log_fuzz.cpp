// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Any bytes for the tool's reader of logs. Each event must be its message with its arguments. No
// line counts twice. A log cut in two has the same events.

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::Block block = fuzz::Input(data, size).rest();
    const std::string_view text(block.text(), block.len);
    Log log = readLog({text});

    size_t num_lines = log.unknown.count + log.foreign.count;
    for (const LogEvent& event : log.events) {
        const std::string given = event.text.substr(0, event.text.find_last_not_of('\n') + 1);
        fuzz::require(filled(event.message->format, event.arguments) == given);
        num_lines += event.count;
    }
    const auto line_feeds = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    fuzz::require(num_lines <= line_feeds + 1);

    const size_t num_events = log.events.size();
    sortByTime(&log.events);
    fuzz::require(log.events.size() == num_events);
    findMessages(text);

    // Nothing that stands before a line of the library can go on in it.
    for (const LogEvent& event : log.events) {
        size_t start = 0;
        for (size_t line = 1; line < event.line; ++line) {
            start = text.find('\n', start) + 1;
        }
        fuzz::require(readLog({text.substr(0, start), text.substr(start)}).events.size() ==
                      num_events);
    }
    return 0;
}
