// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Validation of an attestation chain that lies in files.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

struct VerifyChainOptions {
    std::vector<std::string> files;  // leaf first
    bool separate_first = false;     // the first one is checked against the path's leaf only
};

// Throws Refused with the reason in words and the certificate that it concerns.
void verifyChain(const VerifyChainOptions& options);

}  // namespace zelkm_tool
