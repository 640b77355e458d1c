// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lists of names and of patterns, as the store compares them. The store takes any text for a
// pattern; a text that is no pattern never matches.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelkm_tool {

// Why no subject can ever match this item of ACCESSOR (but the question for everything, "*");
// nothing when one can, or when the item is empty.
std::optional<std::string> whyNoMatch(std::string_view pattern);

// Why an item of a list in `column`, ADMIN or ACCESSOR, is not what it seems to be.
std::optional<std::string> whyNotAList(std::string_view column, std::string_view list);

}  // namespace zelkm_tool
