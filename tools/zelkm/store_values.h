// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What may be said to the store. The library escapes nothing and skips what it does not know, so
// everything is checked here first. Pure functions: no store, no files.

#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

// In the order in which a store holds them.
inline constexpr std::array<std::string_view, 6> kColumnNames = {
    "ALIAS", "CREATOR", "ADMIN", "ACCESSOR", "CREATOR_UID", "PRIV_ACC"};

inline constexpr char kPrivileged[] = "1";  // what the library writes to PRIV_ACC

bool isColumn(std::string_view name);

// Why the library cannot write `value`, naming the byte; nothing when it can, or when it is empty.
std::optional<std::string> whyNotWritable(std::string_view value);

// The same, and why it cannot stand in a condition or be told from other values by programs that
// read a result line by line.
std::optional<std::string> whyNotAValue(std::string_view value);

// The same, and what would make an object hard to address by the value of `column`, or an entry of
// its lists useless.
std::optional<std::string> whyNotStored(std::string_view column, std::string_view value);

// COLUMN=VALUE as the user wrote it.
struct Condition {
    std::string column;
    std::string op;  // "=", or an ordering operator, which no object ever satisfies
    std::string value;
};

// Throws WrongUsage when `text` has no column, no operator, or a value that whyNotAValue() refuses.
Condition parseCondition(std::string_view text);

// Throws WrongUsage for conditions that would not do what they seem to: two on one column (the last
// would count) and more than the store evaluates; and, unless `careless` is set, unknown columns
// (skipped by the store), ordering operators (no object matches) and, when `star_is_careless`, the
// value "*" (every object matches).
void checkConditions(const std::vector<Condition>& conditions, bool careless,
                     bool star_is_careless);

// Splits "A,B"; throws WrongUsage for an unknown or repeated column. An empty text is all columns.
std::vector<std::string> parseColumns(std::string_view text);

// Turns \xNN and \\ into bytes; throws WrongUsage for any other backslash.
std::string unescape(std::string_view text);

// The reverse, for showing bytes on a terminal: printable text and UTF-8 stay as they are.
std::string escape(std::string_view bytes);

// The length of the UTF-8 sequence at the start of `text`, or 0 when there is none.
size_t utf8Length(std::string_view text);

// Cuts the text of a selection of `num_columns` columns into rows. Values are taken up to their
// separator, so a line feed in one does no harm. Nothing when the text does not fit, which means
// that a stored value holds the separator 0x1E.
std::optional<std::vector<std::vector<std::string>>> splitSelection(std::string_view text,
                                                                    size_t num_columns);

}  // namespace zelkm_tool
