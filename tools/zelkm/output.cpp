// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <ostream>
#include <sstream>

#include "bytes.h"
#include "display_width.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr size_t kGap = 2;       // between two columns
constexpr size_t kMinLimit = 8;  // a limit is never lower, even if lines then do not fit

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t len = utf8Length(text);
        if (len == 0) {
            return false;
        }
        text.remove_prefix(len);
    }
    return true;
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
    while (!json.empty()) {
        const size_t shown_len = json[0] == '\n' ? 1 : shownLength(json);
        if (shown_len != 0) {
            text += json.substr(0, shown_len);
            json.remove_prefix(shown_len);
            continue;
        }
        // DEL, or a character of two or three bytes.
        const size_t len = std::max<size_t>(utf8Length(json), 1);
        unsigned code = static_cast<unsigned char>(json[0]) & (len == 1 ? 0x7F : 0xFF >> (len + 1));
        for (const char byte : json.substr(1, len - 1)) {
            code = code << 6 | (static_cast<unsigned char>(byte) & 0x3F);
        }
        const char bytes[] = {static_cast<char>(code >> 8), static_cast<char>(code)};
        text += "\\u" + hex({bytes, 2});
        json.remove_prefix(len);
    }
    return text;
}

size_t terminalWidth() {
    winsize size = {};
    const bool known =
        ::isatty(STDOUT_FILENO) != 0 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    return known ? size.ws_col : 0;
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
            widths[i] = std::max(widths[i], displayWidth(line[i]));
        }
    }
    const size_t limit = width == 0 ? SIZE_MAX : widthLimit(widths, width);
    for (const auto& line : lines) {
        std::string text;
        for (size_t i = 0; i < widths.size(); ++i) {
            const std::string cell = cutToWidth(line[i], limit);
            text += cell + std::string(std::min(widths[i], limit) - displayWidth(cell) + kGap, ' ');
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
