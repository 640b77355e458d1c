// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes by name, for tests that compare them.

#pragma once

#include <map>
#include <string>
#include <utility>

#include "zelkeymaster_result.h"

namespace test {

// "ZELKM_INVALID_TAG (-40)"; a code that only a keymaster has is its number.
inline std::string named(int code) {
#define NAMED(code) std::make_pair(code, #code)
    static const std::map<int, const char*> names = {NAMED(ZELKM_OK),
                                                     NAMED(ZELKM_UNSUPPORTED_PURPOSE),
                                                     NAMED(ZELKM_VERIFICATION_FAILED),
                                                     NAMED(ZELKM_UNEXPECTED_NULL_POINTER),
                                                     NAMED(ZELKM_INVALID_KEY_BLOB),
                                                     NAMED(ZELKM_INVALID_ARGUMENT),
                                                     NAMED(ZELKM_INVALID_TAG),
                                                     NAMED(ZELKM_MEMORY_ALLOCATION_FAILED),
                                                     NAMED(ZELKM_MISSING_NONCE),
                                                     NAMED(ZELKM_KEY_REQUIRES_UPGRADE),
                                                     NAMED(ZELKM_UNKNOWN_ERROR)};
#undef NAMED
    const auto found = names.find(code);
    const std::string number = std::to_string(code);
    return found != names.end() ? std::string(found->second) + " (" + number + ")" : number;
}

}  // namespace test
