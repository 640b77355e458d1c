// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes that a failing test prints with their names.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>

#include <map>
#include <ostream>
#include <string>

#include "../../keymaster_check/src/format.h"
#include "zelkeymaster_result.h"

namespace test {

// The code's number and name, e.g. "-40 INVALID_TAG". A code without a name is its number.
inline std::string named(int code) {
    // Codes that no keymaster returns.
    static const std::map<int, const char*> own = {
        {ZELKM_OK, " OK"},
        {ZELKM_UNKNOWN_COLUMN, " UNKNOWN_COLUMN"},
        {ZELKM_SYNTAX_ERROR, " SYNTAX_ERROR"},
        {ZELKM_MALFORMED_STORE, " MALFORMED_STORE"},
        {ZELKM_STALE_TABLE_HANDLE, " STALE_TABLE_HANDLE"},
        {ZELKM_PAYLOAD_TOO_LONG, " PAYLOAD_TOO_LONG"},
        {ZELKM_NOTHING_DELETED, " NOTHING_DELETED"},
        {ZELKM_SECURE_DB_DISABLED, " SECURE_DB_DISABLED"}};
    const auto found = own.find(code);
    return found != own.end() ? std::to_string(code) + found->second
                              : keymaster_check::describeCode(code);
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
