// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Which message of the table a logged text is: printf, read backwards.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages.h"

namespace zelkm_tool {

// The arguments, as texts, with which a format gives a text; nothing if it never does. A line feed
// at the format's end does not count. A %c may be a NUL, with which the text then ends: it is the
// last argument, an empty one. Takes linear time for a format with at most one %s.
std::optional<std::vector<std::string>> matchFormat(std::string_view format, std::string_view text);

struct FoundMessage {
    const Message* message;
    std::vector<std::string> arguments;  // empty when the format itself was asked for
    bool cut = false;                    // the text ends where a %c should be, as with a NUL
};

// The messages of this level and source (nothing: of any) that give the text. The ones whose
// formats have most bytes beside their conversions win; several are equals.
std::vector<FoundMessage> matchMessages(std::string_view text, std::optional<Level> level,
                                        std::optional<Source> source);

}  // namespace zelkm_tool
