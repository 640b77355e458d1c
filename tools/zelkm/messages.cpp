// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "messages.h"

#include <keymaster_check/names.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <stdexcept>

#include "bytes.h"

namespace zelkm_tool {
namespace {

using Arguments = std::vector<std::string>;

constexpr std::string_view kText = "%s";
constexpr size_t kMaxNumberLen = 20;  // a 64-bit number with its sign or "0x"

// The words that %s stands for, in the formats in which it is not any text.
const std::map<std::string, std::set<std::string>>& wordsOf() {
    static const std::map<std::string, std::set<std::string>> words = {
        {"%s(%d) : L%d", {"command", "invalid column name"}},
        {"%s error(%d)", {"INSERT", "SELECT", "DELETE", "UPDATE"}},
    };
    return words;
}

std::vector<std::string> cellsOf(std::string_view line) {
    std::vector<std::string> cells;
    constexpr std::string_view kBetween = " | ";
    line.remove_prefix(std::string_view("| ").size());
    for (size_t end; (end = line.find(kBetween)) != line.npos;) {
        cells.emplace_back(line.substr(0, end));
        line.remove_prefix(end + kBetween.size());
    }
    cells.emplace_back(line.substr(0, line.rfind(" |")));
    return cells;
}

// The codes that no call of this library leads to: their page has one sentence for all of them.
constexpr std::string_view kOthers = "No call of the library is known to lead to these";

std::vector<ResultCode> readCodes() {
    std::vector<ResultCode> codes;
    for (const PageRow& row : tableRows(
             kDiagnosticsPage, "| code | name | meaning | cause in this library | what to do |")) {
        codes.push_back({std::stoi(row.cells[0]), withoutBackticks(row.cells[1]), row.cells[2],
                         row.cells[3], row.cells[4]});
    }
    std::string others(kDiagnosticsPage.substr(kDiagnosticsPage.find(kOthers)));
    others.resize(others.find("\n\n"));
    std::replace(others.begin(), others.end(), '\n', ' ');
    const std::regex code_and_meaning(R"((-\d+) \(([^)]*)\))");
    for (std::sregex_iterator at(others.begin(), others.end(), code_and_meaning), end; at != end;
         ++at) {
        const int code = std::stoi((*at)[1]);
        codes.push_back({code, keymaster_check::codeName(code), (*at)[2],
                         "No call of the library is known to lead to it.",
                         "Ask the keymaster's vendor."});
    }
    return codes;
}

std::vector<Message> readMessages() {
    std::vector<Message> messages;
    for (const auto& [section, cells] : tableRows(
             kDiagnosticsPage, "| level | message | meaning and cause | what to do | result |")) {
        const bool is_engines = section.find("The engine") == 0;
        const size_t end = cells[2].find(". ");
        std::string meaning = cells[2].substr(0, std::min(end, cells[2].size() - 1));
        meaning[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(meaning[0])));
        messages.push_back({cells[0][0], is_engines ? kEngineSource : kObjectSource,
                            withoutBackticks(cells[1]), meaning,
                            end == std::string::npos ? "" : cells[2].substr(end + 2), cells[3],
                            cells[4]});
    }
    return messages;
}

// How many bytes at the start of the text this conversion can have printed; 0 for none.
size_t valueLen(char conversion, std::string_view text) {
    constexpr std::string_view kNullPointer = "(nil)";
    constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    const bool is_pointer = conversion == 'p';
    if (conversion == 'c') {
        return std::min<size_t>(text.size(), 1);
    }
    if (is_pointer && text.substr(0, kNullPointer.size()) == kNullPointer) {
        return kNullPointer.size();
    }
    const std::string_view prefix = is_pointer ? "0x" : conversion == 'd' ? "-" : "";
    const bool has_prefix = text.substr(0, prefix.size()) == prefix;
    const size_t start = has_prefix ? prefix.size() : 0;
    const std::string_view digits =
        kDigits.substr(0, is_pointer || conversion == 'x' ? kDigits.size() : 10);
    const size_t end = std::min(text.find_first_not_of(digits, start), text.size());
    return end == start || end > kMaxNumberLen || (is_pointer && !has_prefix) ? 0 : end;
}

// Whether a format without %s prints the text; adds its arguments. A %c may print a NUL, at which
// the text ends: that argument is the last one, and empty.
bool matchNumbers(std::string_view format, std::string_view text, Arguments* arguments) {
    while (!format.empty()) {
        if (format[0] != '%') {
            if (text.substr(0, 1) != format.substr(0, 1)) {
                return false;
            }
            format.remove_prefix(1);
            text.remove_prefix(1);
            continue;
        }
        const size_t letter = format.find_first_not_of("%0123456789lz");
        const size_t len = valueLen(format.at(letter), text);
        if (len == 0 && format[letter] != 'c') {
            return false;
        }
        arguments->emplace_back(text.substr(0, len));
        if (len == 0) {
            return true;
        }
        format.remove_prefix(letter + 1);
        text.remove_prefix(len);
    }
    return text.empty();
}

// The arguments with which a format, with at most one %s, prints the text.
std::optional<Arguments> matchFormat(std::string_view format, std::string_view text) {
    const size_t value_at = format.find(kText);
    Arguments arguments;
    if (value_at == format.npos) {
        return matchNumbers(format, text, &arguments) ? std::optional(arguments) : std::nullopt;
    }
    if (text.substr(0, value_at) != format.substr(0, value_at)) {
        return std::nullopt;
    }
    format.remove_prefix(value_at + kText.size());
    text.remove_prefix(value_at);
    // What follows the value is short, so the value's end is near the text's end.
    const auto num_numbers = static_cast<size_t>(std::count(format.begin(), format.end(), '%'));
    const size_t max_len = format.size() + num_numbers * kMaxNumberLen;
    for (size_t end = format.empty() ? text.size() : text.size() - std::min(text.size(), max_len);
         end <= text.size(); ++end) {
        arguments = {std::string(text.substr(0, end))};
        if (matchNumbers(format, text.substr(end), &arguments)) {
            return arguments;
        }
    }
    return std::nullopt;
}

std::string systemError(const Message& message, const std::string& text, int number) {
    if (number == 0) {
        return message.format == kWriteFailed
                   ? "not all bytes were written, as when the disk is full"
                   : "it ended early";
    }
    return number == ENOSPC ? "the disk is full (" + escape(text) + ")" : escape(text);
}

// Whether the arguments are the text and the number of errno.
bool printsErrno(std::string_view format) {
    constexpr std::string_view kErrno = "%s(%d)";
    return format.size() >= kErrno.size() && format.substr(format.size() - kErrno.size()) == kErrno;
}

}  // namespace

std::vector<PageRow> tableRows(std::string_view page, std::string_view columns) {
    const size_t num_cells = cellsOf(columns).size();
    std::vector<PageRow> rows;
    std::string section;
    bool is_inside = false;
    for (const std::string_view line : split(page, '\n')) {
        if (line.substr(0, 1) == "#") {
            section = line.substr(line.find(' ') + 1);
        }
        if (is_inside && line.substr(0, 2) == "| " && line.substr(0, 5) != "| ---") {
            rows.push_back({section, cellsOf(line)});
            if (rows.back().cells.size() != num_cells) {
                throw std::logic_error("not a row: " + std::string(line));
            }
        }
        is_inside = line == columns || (is_inside && line.substr(0, 1) == "|");
    }
    return rows;
}

std::string withoutBackticks(const std::string& cell) {
    return cell.substr(1, cell.size() - 2);
}

const ResultCode* findResultCode(const std::string& text) {
    static const std::vector<ResultCode> codes = readCodes();
    const auto found = std::find_if(codes.begin(), codes.end(), [&text](const ResultCode& code) {
        return text == std::to_string(code.code) || text == code.name ||
               text == "ZELKM_" + code.name;
    });
    return found != codes.end() ? &*found : nullptr;
}

const std::vector<Message>& messages() {
    static const std::vector<Message> messages = readMessages();
    return messages;
}

std::vector<FoundMessage> matchMessages(std::string_view text, char level,
                                        std::string_view source) {
    text = text.substr(0, text.find_last_not_of('\n') + 1);
    std::vector<FoundMessage> best;
    size_t most = 0;
    for (const Message& message : messages()) {
        const std::string& format = message.format;
        if ((level != '\0' && level != message.level) ||
            (!source.empty() && source != message.source)) {
            continue;
        }
        auto arguments = matchFormat(format, text);
        const auto words = wordsOf().find(format);
        if (!arguments ||
            (words != wordsOf().end() && words->second.count(arguments->front()) == 0)) {
            continue;
        }
        const auto num_conversions =
            static_cast<size_t>(std::count(format.begin(), format.end(), '%'));
        const size_t literal = format.size() - num_conversions * kText.size();
        if (best.empty() || literal > most) {
            best.clear();
            most = literal;
        }
        if (literal == most) {
            const bool cut = arguments->size() < num_conversions;
            best.push_back({&message, *std::move(arguments), cut});
        }
    }
    return best;
}

// A negative number at the end is a result code, unless the caller gets another one.
const ResultCode* codeIn(const FoundMessage& found) {
    const std::string& format = found.message->format;
    const std::string& result = found.message->result;
    const std::string last = found.arguments.empty() ? "" : found.arguments.back();
    const bool is_negative =
        last.substr(0, 1) == "-" && format.substr(format.rfind('%'), 2) == "%d";
    const bool is_other = result.substr(0, 1) == "-" && result != last;
    return is_negative && !is_other && !printsErrno(format) ? findResultCode(last) : nullptr;
}

std::string describe(const FoundMessage& found, bool with_code) {
    const auto& [message, arguments, cut] = found;
    if (arguments.empty()) {
        return message->meaning;
    }
    if (printsErrno(message->format)) {
        return message->meaning + ": " +
               systemError(*message, arguments.front(), std::atoi(arguments.back().c_str()));
    }
    const ResultCode* code = with_code ? codeIn(found) : nullptr;
    if (code != nullptr) {
        return message->meaning + " (" + code->nameAndMeaning() + ')';
    }
    const bool is_text =
        message->format.find(kText) != std::string::npos && wordsOf().count(message->format) == 0;
    return message->meaning + (is_text ? ": " + escape(arguments.front()) : "");
}

}  // namespace zelkm_tool
