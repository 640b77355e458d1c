// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Rows for people and for programs.

#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct Table {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;  // as many values as columns each
};

enum class Format { kTable, kJson, kCsv, kCount };

// Prints rows on standard output; a table is made to fit a terminal, and CSV harmless to it.
void print(const Table& table, Format format);

// Prints aligned columns. Bytes that a terminal cannot show appear as \xNN. With a `width`, long
// values are cut with an ellipsis, until lines fit or columns are as narrow as they may be.
void printTable(std::ostream& out, const Table& table, size_t width = 0);

// Prints an array of objects, keyed by column name. JSON strings hold only UTF-8: any other value
// becomes an object such as {"hex": "ff00"}. Control characters are escaped.
void printJson(std::ostream& out, const Table& table);

// Prints CSV (RFC 4180): a header line, lines that end in CR LF, values as their bytes.
void printCsv(std::ostream& out, const Table& table);

// A JSON text in which the characters that a terminal would obey are escaped, which the JSON
// library leaves as they are. They can stand only inside strings.
std::string jsonText(std::string_view json);

}  // namespace zelkm_tool
