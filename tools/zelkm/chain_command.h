// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Validation of an attestation chain that lies in files.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

struct VerifyChainOptions {
    std::vector<std::string> files;  // leaf first
    bool separate_first = false;     // element 0 is checked against the path's leaf only
};

// Throws Refused. Its text names the reason and the certificate at fault.
void verifyChain(const VerifyChainOptions& options);

}  // namespace zelkm_tool
