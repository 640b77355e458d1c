// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>

#include "failure.h"

namespace zelkm_tool {
namespace {

constexpr char kFieldEnd = 0x1E;
constexpr char kRowEnd = '\n';

constexpr struct {
    char byte;
    const char* reason;
} kForbiddenBytes[] = {
    {0x1F, "it would end the quoted value"},
    {kFieldEnd, "it separates the values of a stored row"},
    {kRowEnd, "it separates the rows of a result"},
    {'\0', "it ends the store's text"},
};
constexpr size_t kUnwritable = 2;  // the first of them cannot be stored at all

std::optional<std::string> findByte(std::string_view value, size_t num_forbidden) {
    if (!value.empty() && value.front() == ',') {
        return "byte 1 is ',': a quoted value cannot begin with it";
    }
    for (size_t i = 0; i < value.size(); ++i) {
        for (size_t k = 0; k < num_forbidden; ++k) {
            if (value[i] == kForbiddenBytes[k].byte) {
                return "byte " + std::to_string(i + 1) + " is 0x" + hex(value.substr(i, 1)) + ": " +
                       kForbiddenBytes[k].reason;
            }
        }
    }
    return std::nullopt;
}

// The reason why a value does not work in a condition, or in a result that is read line by line.
std::optional<std::string> valueProblem(std::string_view value) {
    if (value.empty()) {
        return "the value is empty";
    }
    if (auto reason = findByte(value, std::size(kForbiddenBytes))) {
        return reason;
    }
    const size_t conjunction = value.find(" AND ");
    if (conjunction != value.npos) {
        return "bytes " + std::to_string(conjunction + 1) + " to " +
               std::to_string(conjunction + 5) +
               " are \" AND \": a condition with this value would end there";
    }
    return std::nullopt;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes a bound off the front of the text. It is `missing` when there are no digits, and nothing
// when the number does not fit 32 bits.
std::optional<uint32_t> takeBound(std::string_view* text, uint32_t missing) {
    uint32_t bound = missing;
    const auto parsed = std::from_chars(text->data(), text->data() + text->size(), bound);
    text->remove_prefix(static_cast<size_t>(parsed.ptr - text->data()));
    return parsed.ec == std::errc::result_out_of_range ? std::nullopt : std::optional(bound);
}

bool take(std::string_view* text, std::string_view expected) {
    const bool there = text->substr(0, expected.size()) == expected;
    text->remove_prefix(there ? expected.size() : 0);
    return there;
}

// Takes the rest of a range off the text; its "[" is gone already. Returns why it is no range.
std::optional<std::string> takeRange(std::string_view* text) {
    const std::optional<uint32_t> low = takeBound(text, 0);
    const bool dots = take(text, "..");
    const std::optional<uint32_t> high = takeBound(text, std::numeric_limits<uint32_t>::max());
    if (!dots || !take(text, "]")) {
        return "[ begins a range, [lo..hi] with decimal numbers";
    }
    if (!low || !high) {
        return "a bound of a range has at most 32 bits, 4294967295";
    }
    if (*low > *high) {
        return "the range is empty: its bounds are reversed";
    }
    return std::nullopt;
}

// The reason why an item of a list in `column`, ADMIN or ACCESSOR, is probably a slip: it has a
// blank at an end, or it never matches.
std::optional<std::string> listProblem(std::string_view column, std::string_view list) {
    for (const std::string_view item : split(list, ',')) {
        const std::string shown = "item '" + escape(item) + "': ";
        if (!item.empty() && (item.front() == ' ' || item.back() == ' ')) {
            return shown + "the blank would be part of the name";
        }
        if (const auto reason = column == "ACCESSOR" ? patternProblem(item) : std::nullopt) {
            return shown + "nobody would ever match: " + *reason;
        }
    }
    return std::nullopt;
}

bool isName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_';
    });
}

}  // namespace

size_t columnNumber(std::string_view name) {
    return static_cast<size_t>(std::find(kColumnNames.begin(), kColumnNames.end(), name) -
                               kColumnNames.begin());
}

std::optional<std::string> bytesProblem(std::string_view value) {
    return findByte(value, kUnwritable);
}

std::optional<std::string> patternProblem(std::string_view pattern) {
    bool after_range = false;  // the item before was a range, which takes all digits that follow
    while (!pattern.empty()) {
        const char c = pattern.front();
        pattern.remove_prefix(1);
        if (after_range && (c == '[' || isDigit(c))) {
            return "a number cannot follow a range, which takes all digits";
        }
        after_range = c == '[';
        if (c == '[') {
            if (const auto reason = takeRange(&pattern)) {
                return reason;
            }
        } else if (c == '*' && !pattern.empty() && !take(&pattern, "#") && !take(&pattern, "_")) {
            return "* may only be at the end, or in *# and *_";
        }
    }
    return std::nullopt;
}

std::optional<std::string> storedValueProblem(std::string_view column, std::string_view value,
                                              bool as_is) {
    if (as_is && !value.empty()) {
        return bytesProblem(value);
    }
    // A condition with the value "*" matches every object, so this object could not be asked for
    // alone.
    if (value == "*" && column != "ACCESSOR") {
        return "the value is '*': a condition with this value matches every object";
    }
    const bool is_number = !value.empty() && std::all_of(value.begin(), value.end(), isDigit);
    if (column == "CREATOR_UID" && !is_number) {
        return "a uid is a decimal number";
    }
    if (auto reason = valueProblem(value)) {
        return reason;
    }
    return column == "ADMIN" || column == "ACCESSOR" ? listProblem(column, value) : std::nullopt;
}

Condition parseCondition(std::string_view text) {
    const std::string shown = "condition '" + escape(text) + "': ";
    const size_t at = text.find_first_of("=<>");
    if (at == text.npos) {
        throw WrongUsage(shown + "COLUMN=VALUE expected");
    }
    Condition condition;
    condition.column = text.substr(0, at);
    condition.op = text[at];
    if (text[at] != '=' && text.substr(at + 1, 1) == "=") {
        condition.op += '=';
    }
    condition.value = text.substr(at + condition.op.size());
    // Anything but a name could bring another operator or condition into the command.
    if (!isName(condition.column)) {
        throw WrongUsage(shown + "a column name has only letters, digits and '_'");
    }
    if (const auto reason = valueProblem(condition.value)) {
        throw WrongUsage(shown + *reason);
    }
    return condition;
}

void checkConditions(const std::vector<Condition>& conditions, bool careless,
                     bool star_is_careless) {
    if (conditions.size() > SDB_MAX_CONDITIONS) {
        throw WrongUsage("more than " + std::to_string(SDB_MAX_CONDITIONS) +
                         " conditions: the store would ignore the rest");
    }
    for (size_t i = 0; i < conditions.size(); ++i) {
        const Condition& condition = conditions[i];
        const auto same_column = [&](const Condition& c) { return c.column == condition.column; };
        if (std::count_if(conditions.begin(), conditions.end(), same_column) > 1) {
            throw WrongUsage("two conditions on " + condition.column +
                             ": the store takes one per column");
        }
        if (careless) {
            continue;
        }
        if (columnNumber(condition.column) == kColumnNames.size()) {
            throw WrongUsage("unknown column " + condition.column +
                             ": the store would skip the condition, so that every object matches; "
                             "the columns are " +
                             join(kColumnNames, ", "));
        }
        if (condition.op != "=") {
            throw WrongUsage("operator " + condition.op + " in the condition on " +
                             condition.column +
                             ": the store accepts it, but no object ever matches");
        }
        if (condition.column == "ADMIN" && condition.value.find(',') != std::string::npos) {
            throw WrongUsage(
                "the condition on ADMIN has a comma: it is compared with one item of "
                "the list, so that no object ever matches");
        }
        if (star_is_careless && condition.value == "*") {
            throw WrongUsage("the value * in the condition on " + condition.column +
                             " matches every object");
        }
    }
}

std::vector<std::string> parseColumns(std::string_view text) {
    std::vector<std::string> columns;
    if (text.empty()) {
        columns.assign(kColumnNames.begin(), kColumnNames.end());
        return columns;
    }
    for (const std::string_view each : split(text, ',')) {
        const std::string name(each);
        if (columnNumber(name) == kColumnNames.size()) {
            throw WrongUsage("unknown column '" + escape(name) + "'; the columns are " +
                             join(kColumnNames, ", "));
        }
        if (std::find(columns.begin(), columns.end(), name) != columns.end()) {
            throw WrongUsage("column " + name + " is named twice");
        }
        columns.push_back(name);
    }
    return columns;
}

}  // namespace zelkm_tool
