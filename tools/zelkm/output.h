// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Rows for people and for programs.

#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace zelkm_tool {

struct Table {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;  // as many values as columns each
};

// The width of the terminal that standard output is, in columns; 0 when it is none.
size_t terminalWidth();

// Aligned columns; bytes that a terminal cannot show appear as \xNN. With a width, longer values
// are cut, with an ellipsis, as far as that makes the lines fit.
void printTable(std::ostream& out, const Table& table, size_t width = 0);

// An array of objects keyed by column name. A value that is no UTF-8, which JSON cannot hold, is an
// object instead of a string: {"hex": "ff00"}. Control characters are escaped.
void printJson(std::ostream& out, const Table& table);

// RFC 4180: a header line, lines that end in CR LF, values as the bytes they are.
void printCsv(std::ostream& out, const Table& table);

}  // namespace zelkm_tool
