// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of result codes: every keymaster 4.0 error code and the library's own.

#pragma once

#include <vector>

namespace zelkm_tool {

struct ResultCode {
    int code;
    const char* name;
    const char* meaning;  // a few words
    const char* cause;    // in this library; empty: none of its calls is known to lead to it
    const char* advice;   // empty: only the keymaster's makers know
};

// All of them, 0 first, then downwards.
const std::vector<ResultCode>& resultCodes();

// Null for a code that is in no table.
const ResultCode* findResultCode(int code);

// What stands for an empty cause and an empty advice.
const char* causeOf(const ResultCode& result);
const char* adviceOf(const ResultCode& result);

}  // namespace zelkm_tool
