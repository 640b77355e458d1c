// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes in words. See result_text.h; the table is in result_codes.cpp.

#include "result_text.h"

#include <zelkeymaster_result.h>

#include <algorithm>
#include <iostream>

#include "failure.h"
#include "log_capture.h"

namespace zelkm_tool {

const ResultCode* findResultCode(int code) {
    const auto& codes = resultCodes();
    const auto found = std::find_if(codes.begin(), codes.end(),
                                    [code](const ResultCode& c) { return c.code == code; });
    return found != codes.end() ? &*found : nullptr;
}

const char* causeOf(const ResultCode& result) {
    return *result.cause != '\0' ? result.cause
                                 : "None of the library's calls gives a keymaster reason for it.";
}

const char* adviceOf(const ResultCode& result) {
    return *result.advice != '\0' ? result.advice : "Ask whoever makes the keymaster.";
}

std::string resultText(int code) {
    const ResultCode* found = findResultCode(code);
    return std::to_string(code) + " " + (found != nullptr ? found->meaning : "error unknown here");
}

std::string failureText(int code, const std::string& what) {
    const std::string cause = takeCause();
    return what + ": " + resultText(code) + (cause.empty() ? "" : ": " + cause);
}

void check(int code, const std::string& what) {
    if (code != ZELKM_OK) {
        throw Refused(failureText(code, what));
    }
    const std::string cause = takeCause();
    if (!cause.empty()) {
        std::cerr << "zelkm: warning: " << what << ": " << cause << '\n';
    }
}

}  // namespace zelkm_tool
