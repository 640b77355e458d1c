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

// Aligned columns; bytes that a terminal cannot show appear as \xNN.
void printTable(std::ostream& out, const Table& table);

// An array of objects keyed by column name. A value that is no UTF-8, which JSON cannot hold, is an
// object instead of a string: {"hex": "ff00"}.
void printJson(std::ostream& out, const Table& table);

// RFC 4180: a header line, lines that end in CR LF, values as the bytes they are.
void printCsv(std::ostream& out, const Table& table);

}  // namespace zelkm_tool
