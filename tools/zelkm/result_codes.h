// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of result codes: every keymaster 4.0 error code and the library's own.

#pragma once

#include <vector>

namespace zelkm_tool {

struct ResultCode {
    int code;
    const char* meaning;  // a few words
    // In this library. Both are empty when no call of it leads to the code: then only the
    // keymaster's makers can tell.
    const char* cause = "";
    const char* advice = "";

    const char* name() const;
};

// All codes: 0 first, then downwards.
const std::vector<ResultCode>& resultCodes();

// Null when the code is unknown.
const ResultCode* findResultCode(int code);

// The cause and the advice, or general ones where the code has none.
const char* causeOf(const ResultCode& result);
const char* adviceOf(const ResultCode& result);

}  // namespace zelkm_tool
