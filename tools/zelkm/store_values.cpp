// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>

#include "access_patterns.h"
#include "bytes.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

constexpr char kFieldEnd = 0x1E;
constexpr char kRowEnd = '\n';

struct ForbiddenByte {
    char byte;
    const char* reason;
};

constexpr ForbiddenByte kUnwritableBytes[] = {
    {0x1F, "it would end the quoted value"},
    {kFieldEnd, "it separates the values of a stored row"},
};
constexpr ForbiddenByte kConfusingBytes[] = {
    {kRowEnd, "it separates the rows of a result"},
    {'\0', "it ends the store's text"},
};

template <size_t kCount>
std::optional<std::string> findByte(std::string_view value,
                                    const ForbiddenByte (&forbidden)[kCount]) {
    for (size_t i = 0; i < value.size(); ++i) {
        for (const ForbiddenByte& candidate : forbidden) {
            if (value[i] == candidate.byte) {
                return "byte " + std::to_string(i + 1) + " is 0x" + hex(value.substr(i, 1)) + ": " +
                       candidate.reason;
            }
        }
    }
    return std::nullopt;
}

bool isName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_';
    });
}

std::string allColumns() {
    std::string text;
    for (const std::string_view name : kColumnNames) {
        text += text.empty() ? "" : ", ";
        text += name;
    }
    return text;
}

}  // namespace

bool isColumn(std::string_view name) {
    return std::find(kColumnNames.begin(), kColumnNames.end(), name) != kColumnNames.end();
}

std::optional<std::string> bytesProblem(std::string_view value) {
    if (!value.empty() && value.front() == ',') {
        return "byte 1 is ',': a quoted value cannot begin with it";
    }
    return findByte(value, kUnwritableBytes);
}

std::optional<std::string> valueProblem(std::string_view value) {
    if (value.empty()) {
        return "the value is empty";
    }
    if (auto reason = bytesProblem(value)) {
        return reason;
    }
    if (auto reason = findByte(value, kConfusingBytes)) {
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

std::optional<std::string> storedValueProblem(std::string_view column, std::string_view value) {
    // A condition with the value "*" matches every object, so this object could not be asked for
    // alone.
    if (value == "*" && column != "ACCESSOR") {
        return "the value is '*': a condition with this value matches every object";
    }
    const bool is_number = !value.empty() && std::all_of(value.begin(), value.end(), [](char c) {
        return c >= '0' && c <= '9';
    });
    if (column == "CREATOR_UID" && !is_number) {
        return "a uid is a decimal number";
    }
    if (auto reason = valueProblem(value)) {
        return reason;
    }
    return column == "ADMIN" || column == "ACCESSOR" ? listProblem(column, value) : std::nullopt;
}

std::optional<std::string> givenValueProblem(std::string_view column, std::string_view value,
                                             bool as_is) {
    return as_is && !value.empty() ? bytesProblem(value) : storedValueProblem(column, value);
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
        if (!isColumn(condition.column)) {
            throw WrongUsage("unknown column " + condition.column +
                             ": the store would skip the condition, so that every object matches; "
                             "the columns are " +
                             allColumns());
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
        if (!isColumn(name)) {
            throw WrongUsage("unknown column '" + escape(name) + "'; the columns are " +
                             allColumns());
        }
        if (std::find(columns.begin(), columns.end(), name) != columns.end()) {
            throw WrongUsage("column " + name + " is named twice");
        }
        columns.push_back(name);
    }
    return columns;
}

std::string unescape(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        if (text.substr(i, 2) == "\\\\") {
            bytes += '\\';
            i += 1;
            continue;
        }
        unsigned value = 0;
        const std::string_view digits = text.substr(std::min(i + 2, text.size()), 2);
        const auto parsed =
            std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (text.substr(i, 2) != "\\x" || digits.size() != 2 ||
            parsed.ptr != digits.data() + digits.size()) {
            throw WrongUsage("byte " + std::to_string(i + 1) +
                             " is a backslash: write \\xNN for the byte NN (hexadecimal), or \\\\ "
                             "for a backslash");
        }
        bytes += static_cast<char>(value);
        i += 3;
    }
    return bytes;
}

size_t utf8Length(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) {
        return 1;
    }
    const size_t len = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (len == 0 || text.size() < len) {
        return 0;
    }
    for (size_t i = 1; i < len; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Refuses overlong forms, surrogates, and code points that are too large.
    const bool overlong = (lead == 0xE0 && at(1) < 0xA0) || (lead == 0xF0 && at(1) < 0x90);
    const bool beyond = (lead == 0xED && at(1) > 0x9F) || (lead == 0xF4 && at(1) > 0x8F);
    return overlong || beyond ? 0 : len;
}

size_t shownLength(std::string_view text) {
    const size_t len = utf8Length(text);
    const std::string_view piece = text.substr(0, len);
    if (len <= 1) {
        return len == 1 && piece[0] >= 0x20 && piece[0] != 0x7F ? 1 : 0;
    }
    const auto within = [&](std::string_view first, std::string_view last) {
        return piece >= first && piece <= last && piece.size() == first.size();
    };
    const bool obeyed = within("\u0080", "\u009F") || piece == "\u061C" ||
                        within("\u200E", "\u200F") || within("\u2028", "\u202E") ||
                        within("\u2066", "\u2069");
    return obeyed ? 0 : len;
}

namespace {

// Characters that a terminal shows stay, but for those with a text of their own. All other bytes
// become \xNN.
std::string shown(std::string_view bytes, const std::map<std::string_view, std::string_view>& own) {
    std::string text;
    while (!bytes.empty()) {
        const size_t shown_len = shownLength(bytes);
        const size_t len = std::max<size_t>(shown_len, 1);
        const auto found = own.find(bytes.substr(0, len));
        if (found != own.end()) {
            text += found->second;
        } else if (shown_len != 0) {
            text += bytes.substr(0, len);
        } else {
            text += "\\x" + hex(bytes.substr(0, 1));
        }
        bytes.remove_prefix(len);
    }
    return text;
}

}  // namespace

std::string escape(std::string_view bytes) {
    return shown(bytes, {{"\\", "\\\\"}, {"\n", "\\x0a"}});
}

std::string printable(std::string_view text) {
    return shown(text, {{"\n", "\n"}});
}

std::optional<std::vector<std::vector<std::string>>> splitSelection(std::string_view text,
                                                                    size_t num_columns) {
    std::vector<std::vector<std::string>> rows;
    while (text != std::string_view("\0", 1)) {
        std::vector<std::string> row;
        for (size_t i = 0; i < num_columns; ++i) {
            const size_t end = text.find(kFieldEnd);
            if (end == text.npos) {
                return std::nullopt;
            }
            row.emplace_back(text.substr(0, end));
            text.remove_prefix(end + 1);
        }
        if (text.empty() || text.front() != kRowEnd) {
            return std::nullopt;
        }
        text.remove_prefix(1);
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace zelkm_tool
