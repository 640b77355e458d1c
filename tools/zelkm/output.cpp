// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Rows for people and for programs. See output.h.

#include "output.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "bytes.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

// Characters that stand on a line of their own width: bytes that continue none.
size_t displayWidth(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

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
    for (char c : value) {
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

}  // namespace

void printTable(std::ostream& out, const Table& table) {
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
    for (const auto& line : lines) {
        std::string text;
        for (size_t i = 0; i < widths.size(); ++i) {
            text += line[i] + std::string(widths[i] - displayWidth(line[i]) + 2, ' ');
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
    out << objects.dump(2) << '\n';
}

void printCsv(std::ostream& out, const Table& table) {
    printCsvLine(out, table.columns);
    for (const auto& row : table.rows) {
        printCsvLine(out, row);
    }
}

}  // namespace zelkm_tool
