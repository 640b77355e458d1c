// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Chains of certificates, good and mutilated, for validateAttestChain(). The result must be a
// listed one, and the error queue empty after a failure.

#include <openssl/err.h>

#include <vector>

#include "fuzz.h"
#include "zelkeymaster_operation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const bool chain_only = (input.byte() & 1) != 0;
    std::vector<android::hardware::hidl_vec<uint8_t>> elements;
    while (!input.empty() && elements.size() < 12) {
        const fuzz::Block block = input.block();
        elements.emplace_back(block.data.get(), block.data.get() + block.len);
    }
    const int status = ZelKeymasterOperation::validateAttestChain(elements, chain_only);
    fuzz::require(status == 0 || (status == ZELKM_VERIFICATION_FAILED && ERR_peek_error() == 0));
    fuzz::require(status != 0 || elements.size() >= 3);
    ERR_clear_error();
    return 0;
}
