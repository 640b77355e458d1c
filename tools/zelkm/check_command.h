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
    size_t largest_store = 1000000;  // bytes
};

// Checks a keymaster with a root key of its own, which is removed afterwards: first all of it, and
// then a saved key after an upgrade of the system. No store is touched. Returns the exit status.
int checkKeymaster(const CheckOptions& options);

}  // namespace zelkm_tool
