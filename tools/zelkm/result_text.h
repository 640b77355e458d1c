// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes in words: every keymaster 4.0 error code and the library's own.

#pragma once

#include <string>
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

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// "<what>: <code and meaning>: <cause>", with the cause that the library's log of the call tells;
// without it when it tells none.
std::string failureText(int code, const std::string& what);

// Throws Refused with the failure's text unless the code is 0. A call that logged an error, and
// succeeded all the same, is told on standard error.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
