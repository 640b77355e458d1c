// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The width of text on a terminal.

#pragma once

#include <string>
#include <string_view>

namespace zelkm_tool {

// The width in columns: two for most characters of East Asia and for emoji, none for combining
// characters. `text` must be printable UTF-8, as escape() makes it.
size_t displayWidth(std::string_view text);

// The text. When it is wider than `width` columns (at least 1), as much of its start as fits, with
// an ellipsis.
std::string cutToWidth(const std::string& text, size_t width);

}  // namespace zelkm_tool
