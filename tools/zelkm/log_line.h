// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Takes one line of a log apart, into the library's message and what stands around it.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "messages.h"

namespace zelkm_tool {

// A line of the library, in any of the formats that logs have.
struct LogLine {
    Level level;
    Source source;
    std::string_view text;  // the message
    std::string_view time;  // as it stands in the line; empty for none
    bool in_error_file;
};

// Takes apart a line that has no escape sequences any more; see withoutEscapes(). Nothing when the
// line is not the library's. The views point into `line`.
std::optional<LogLine> parseLogLine(std::string_view line);

// The line without its escape sequences ("\033[31m"), and without what other systems put at its
// end: carriage returns and NULs.
std::string withoutEscapes(std::string_view line);

}  // namespace zelkm_tool
