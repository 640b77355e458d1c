// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// How wide text stands on a terminal.

#pragma once

#include <string>
#include <string_view>

namespace zelkm_tool {

// In columns: two for most characters of East Asia and emoji, none for combining ones. `text` is as
// escape() makes it: printable UTF-8.
size_t displayWidth(std::string_view text);

// The text, or as much of its start as fits `width`, at least 1, with an ellipsis.
std::string cutToWidth(const std::string& text, size_t width);

}  // namespace zelkm_tool
