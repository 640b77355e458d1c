// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "result_codes.h"

#include <keymaster_check/names.h>

#include <algorithm>
#include <regex>

#include "pages.h"

namespace zelkm_tool {
namespace {

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

}  // namespace

const std::vector<ResultCode>& resultCodes() {
    static const std::vector<ResultCode> codes = readCodes();
    return codes;
}

const ResultCode* findResultCode(int code) {
    const auto& codes = resultCodes();
    const auto found = std::find_if(codes.begin(), codes.end(),
                                    [code](const ResultCode& c) { return c.code == code; });
    return found != codes.end() ? &*found : nullptr;
}

}  // namespace zelkm_tool
