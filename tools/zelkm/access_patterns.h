// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lists of names and of patterns, as the store compares them. The store takes any text for a
// pattern. A text that breaks the rules of patterns never matches.

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zelkm_tool {

// The reason why no subject can ever match this item of ACCESSOR. Nothing when a subject can, or
// when the item is empty. The subject "*", which matches everything, does not count.
std::optional<std::string> patternProblem(std::string_view pattern);

// The reason why an item of a list in `column`, ADMIN or ACCESSOR, is probably a slip: it has a
// blank at an end, or it never matches. Nothing when no item is.
std::optional<std::string> listProblem(std::string_view column, std::string_view list);

}  // namespace zelkm_tool
