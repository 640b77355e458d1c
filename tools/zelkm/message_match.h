// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Finds the message of the table that a logged text came from: printf read backwards.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages.h"

namespace zelkm_tool {

// The arguments with which a format prints a text; nothing if it never prints it. A line feed at
// the format's end does not count. A %c may print a NUL, at which the text ends: that argument is
// the last one, and empty. Takes linear time when the format has at most one %s.
std::optional<std::vector<std::string>> matchFormat(std::string_view format, std::string_view text);

struct FoundMessage {
    const Message* message;
    std::vector<std::string> arguments;  // empty when the format itself was asked for
    bool cut = false;                    // the text ends where a %c should be, as at a NUL
};

// The messages of this level and source that can print the text; without a value, of any. The
// formats with most literal bytes win. Several may be equal.
std::vector<FoundMessage> matchMessages(std::string_view text, std::optional<Level> level,
                                        std::optional<Source> source);

}  // namespace zelkm_tool
