// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Pages of docs/ that are compiled into the tool. Their tables are the only home of what the tool
// says about messages, result codes and findings.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

extern const std::string_view kDiagnosticsPage;
extern const std::string_view kDoctorPage;

struct PageRow {
    std::string section;  // the heading above its table
    std::vector<std::string> cells;
};

// The rows of all tables with these column names, e.g. "| code | name |". Throws std::logic_error
// for a row with another number of cells.
std::vector<PageRow> tableRows(std::string_view page, std::string_view columns);

// A cell without the backticks around it.
std::string withoutBackticks(const std::string& cell);

}  // namespace zelkm_tool
