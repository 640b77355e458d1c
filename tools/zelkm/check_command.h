// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The check of the tool's own keymaster, as it is or with a fault.

#pragma once

#include <cstddef>
#include <string>

namespace zelkm_tool {

struct CheckOptions {
    std::string fault;  // a name of soft_keymaster::namedFaults(); empty for none
    bool json = false;
    size_t largest_store = 1 << 20;  // bytes
};

// Checks a keymaster with a root key of its own, which is removed afterwards. No store is touched.
// Throws Refused when a requirement is broken.
void checkKeymaster(const CheckOptions& options);

}  // namespace zelkm_tool
