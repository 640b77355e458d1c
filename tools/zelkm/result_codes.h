// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every keymaster 4.0 error code and the library's own, from docs/diagnostics.md.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

struct ResultCode {
    int code;
    std::string name;
    std::string meaning;  // a few words
    std::string cause;    // in this library
    std::string advice;

    // E.g. "-49 SECURE_HW_COMMUNICATION_FAILED: the secure hardware does not respond".
    std::string nameAndMeaning() const {
        return std::to_string(code) + ' ' + name + ": " + meaning;
    }
};

const std::vector<ResultCode>& resultCodes();

// Null when the code is unknown.
const ResultCode* findResultCode(int code);

}  // namespace zelkm_tool
