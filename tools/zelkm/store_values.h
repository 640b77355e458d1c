// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks what goes to the store. The library escapes nothing, and skips what it does not know. Pure
// functions: they use no store and no files.

#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"

#include "velt_secure_db.h"

namespace zelkm_tool {

// In the order of a stored row.
inline constexpr std::array<std::string_view, SDB_NUM_COLUMNS> kColumnNames = {
    "ALIAS", "CREATOR", "ADMIN", "ACCESSOR", "CREATOR_UID", "PRIV_ACC"};
static_assert(!kColumnNames.back().empty(), "a column of the library has no name here");

inline constexpr char kPrivileged[] = "1";  // what the library writes to PRIV_ACC

// The place of a column in that order; the number of columns when the name is none.
size_t columnNumber(std::string_view name);

// The reason why the library cannot write `value`, with the byte at fault. Nothing when it can, or
// when the value is empty.
std::optional<std::string> bytesProblem(std::string_view value);

// The reason why `value` is not to be stored in `column`: the library cannot write it, no condition
// can ask for it, or it is a list with an item that never matches. With `as_is` only the first
// counts. An empty value is refused in any case.
std::optional<std::string> storedValueProblem(std::string_view column, std::string_view value,
                                              bool as_is = false);

// The reason why no subject can ever match this item of ACCESSOR. Nothing when a subject can, or
// when the item is empty. The subject "*", which matches everything, does not count.
std::optional<std::string> patternProblem(std::string_view pattern);

// A condition, COLUMN=VALUE, as the user wrote it.
struct Condition {
    std::string column;
    std::string op;  // "=", or "<", "<=", ">", ">=", which no object satisfies
    std::string value;
};

// Throws WrongUsage when `text` has no column or no operator, or a value that would not work there.
Condition parseCondition(std::string_view text);

// Throws WrongUsage for conditions that would not do what they seem to do. Always: two on one
// column (the last one would count), and more than the store evaluates. Unless `careless` is set:
// unknown columns (the store skips them), ordering operators (no object matches) and, with
// `star_is_careless`, the value "*" (every object matches).
void checkConditions(const std::vector<Condition>& conditions, bool careless,
                     bool star_is_careless);

// Splits "A,B". An empty text stands for all columns. Throws WrongUsage for an unknown or repeated
// column.
std::vector<std::string> parseColumns(std::string_view text);

}  // namespace zelkm_tool
