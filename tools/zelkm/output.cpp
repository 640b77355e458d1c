// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "output.h"

#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <ostream>
#include <sstream>

#include "bytes.h"

namespace zelkm_tool {
namespace {

constexpr size_t kGap = 2;       // between two columns
constexpr size_t kMinLimit = 8;  // a limit is never lower, even if lines then do not fit

constexpr char kEllipsis[] = "\xE2\x80\xA6";

// The width of a character in columns: two for most characters of East Asia and for emoji, none for
// combining characters.
size_t widthOf(char32_t code) {
    // Values are UTF-8 whatever the user's locale is. Without this locale every character counts as
    // one column.
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (code < 0x80 || utf8 == nullptr) {
        return 1;
    }
    const locale_t before = ::uselocale(utf8);
    const int width = ::wcwidth(static_cast<wchar_t>(code));
    ::uselocale(before);
    return width < 0 ? 1 : static_cast<size_t>(width);
}

struct Fitting {
    size_t len;    // of the start of a text that fits
    size_t width;  // of that in columns
};

// As much of the start of a printable text, as escape() makes it, as fits.
Fitting fit(std::string_view text, size_t width) {
    Fitting result = {};
    while (result.len < text.size()) {
        const Character character = firstCharacter(text.substr(result.len));
        const size_t more = widthOf(character.code);
        if (result.width + more > width) {
            break;
        }
        result = {result.len + character.len, result.width + more};
    }
    return result;
}

std::string csvValue(const std::string& value) {
    if (value.find_first_of(",\"\r\n") == value.npos) {
        return value;
    }
    std::string quoted = "\"";
    for (const char c : value) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + '"';
}

void printCsvLine(std::ostream& out, const std::vector<std::string>& values) {
    for (size_t i = 0; i < values.size(); ++i) {
        out << (i == 0 ? "" : ",") << csvValue(values[i]);
    }
    out << "\r\n";
}

// A terminal would obey the values; everything else gets them as they are.
void printCsv(const Table& table) {
    std::ostringstream csv;
    printCsv(csv, table);
    std::string text = csv.str();
    std::cout.flush();
    if (::isatty(STDOUT_FILENO) == 0) {
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
            std::cout.setstate(std::ios::badbit);
        }
        return;
    }
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    std::cout << text;
}

// The width of standard output in columns; 0 when it is no terminal.
size_t terminalWidth() {
    winsize size = {};
    const bool known =
        ::isatty(STDOUT_FILENO) != 0 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return known ? size.ws_col : 0;
}

// The widest that a column may be so that lines fit. Never so narrow that nothing could be read.
size_t widthLimit(const std::vector<size_t>& widths, size_t line_width) {
    size_t limit = *std::max_element(widths.begin(), widths.end());
    const auto total = [&] {
        return std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1),
                               [&](size_t sum, size_t w) { return sum + std::min(w, limit); });
    };
    while (limit > kMinLimit && total() > line_width) {
        --limit;
    }
    return std::max(limit, kMinLimit);
}

}  // namespace

std::string jsonText(std::string_view json) {
    std::string text;
    for (Character character; !json.empty(); json.remove_prefix(character.len)) {
        character = firstCharacter(json);
        const std::string piece(json.substr(0, character.len));
        if (piece == "\n" || character.isShown()) {
            text += piece;
        } else {
            const std::string quoted = nlohmann::json(piece).dump(-1, ' ', true);
            text += quoted.substr(1, quoted.size() - 2);
        }
    }
    return text;
}

void print(const Table& table, Format format) {
    switch (format) {
        case Format::kTable:
            return printTable(std::cout, table, terminalWidth());
        case Format::kJson:
            return printJson(std::cout, table);
        case Format::kCsv:
            return printCsv(table);
        case Format::kCount:
            std::cout << table.rows.size() << '\n';
    }
}

void printTable(std::ostream& out, const Table& table, size_t width) {
    std::vector<std::vector<std::string>> lines = {table.columns};
    for (const auto& row : table.rows) {
        std::transform(row.begin(), row.end(), std::back_inserter(lines.emplace_back()), escape);
    }
    std::vector<size_t> widths(table.columns.size(), 0);
    for (const auto& line : lines) {
        for (size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], fit(line[i], SIZE_MAX).width);
        }
    }
    const size_t limit = width == 0 ? SIZE_MAX : widthLimit(widths, width);
    for (const auto& line : lines) {
        std::string text;
        for (size_t i = 0; i < widths.size(); ++i) {
            Fitting cell = fit(line[i], limit);
            const bool is_cut = cell.len != line[i].size();
            cell = is_cut ? fit(line[i], limit - 1) : cell;  // the ellipsis needs a column
            text += line[i].substr(0, cell.len) + (is_cut ? kEllipsis : "");
            const size_t used = cell.width + (is_cut ? 1 : 0);
            text += std::string(std::min(widths[i], limit) - used + kGap, ' ');
        }
        out << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
    }
}

void printJson(std::ostream& out, const Table& table) {
    auto objects = nlohmann::ordered_json::array();
    for (const auto& row : table.rows) {
        nlohmann::ordered_json object;
        for (size_t i = 0; i < row.size(); ++i) {
            if (isUtf8(row[i])) {
                object[table.columns[i]] = row[i];
            } else {
                object[table.columns[i]]["hex"] = hex(row[i]);
            }
        }
        objects.push_back(std::move(object));
    }
    out << jsonText(objects.dump(2)) << '\n';
}

void printCsv(std::ostream& out, const Table& table) {
    printCsvLine(out, table.columns);
    for (const auto& row : table.rows) {
        printCsvLine(out, row);
    }
}

}  // namespace zelkm_tool
