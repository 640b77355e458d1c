// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes that a failing test prints with their names.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <keymaster_check/names.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.h"
#include "zelkeymaster_result.h"

namespace test {

// The code's number and name, e.g. "-40 INVALID_TAG". A code without a name is its number.
inline std::string named(int code) {
    return keymaster_check::describeCode(code);
}

// A result code that GoogleTest prints with its name.
class Code {
  public:
    Code(int code) : code_(code) {}
    operator int() const { return code_; }
    friend void PrintTo(Code code, std::ostream* out) { *out << named(code); }

  private:
    int code_;
};

// What a kept report says of an operation: its result, the log, the keymaster's calls, and the
// state after it.
inline std::string outcome(int result,
                           const std::vector<std::pair<const char*, std::string>>& state,
                           const Lines& calls = {}) {
    std::string report = "returns " + named(result) + "\n";
    for (const std::string& line : log()) {
        report += "logs " + line + "\n";
    }
    for (const std::string& call : calls) {
        report += "calls " + call + "\n";
    }
    for (const auto& [what, value] : state) {
        report += what + std::string(" \"") + value + "\"\n";
    }
    return report;
}

}  // namespace test

// The same for the codes themselves.
inline void PrintTo(zelkm_result code, std::ostream* out) {
    *out << test::named(code);
}

namespace android::hardware::keymaster::V4_0 {

inline void PrintTo(ErrorCode error, std::ostream* out) {
    *out << test::named(static_cast<int>(error));
}

}  // namespace android::hardware::keymaster::V4_0
