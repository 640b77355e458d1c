// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "result_text.h"

#include <zelkeymaster_result.h>

#include <iostream>

#include "failure.h"
#include "log_capture.h"
#include "result_codes.h"

namespace zelkm_tool {

std::string resultText(int code) {
    const ResultCode* found = findResultCode(code);
    return std::to_string(code) + " " + (found != nullptr ? found->meaning : "unknown code");
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
