// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "pages.h"

#include <algorithm>
#include <stdexcept>

#include "bytes.h"

namespace zelkm_tool {
namespace {

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

}  // namespace zelkm_tool
