// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The checks of an attestation chain, per RFC 5280 as libcrypto implements it, with the chain's own
// last certificate as the only trust anchor. See validateAttestChain().

#pragma once

#include <hidl/HidlSupport.h>
#include <openssl/x509.h>

#include <cstdint>

namespace zelkm {

using CertificateChain = android::hardware::hidl_vec<android::hardware::hidl_vec<uint8_t>>;  // DER

enum class ChainFailure {
    kNone,
    kLength,     // fewer than three elements
    kLeafParse,  // the path's first certificate
    kStack,      // no memory for the untrusted certificates
    kParse,      // a further certificate
    kPush,
    kStore,  // no memory for the trust store
    kContext,
    kVerify,      // the path
    kFirstParse,  // the separate first certificate
    kLeafKey,
    kFirstVerify,  // its signature
};

struct ChainOutcome {
    ChainFailure failure;
    int verify_result;  // of X509_verify_cert, for kVerify
    int verify_error;   // its error code
};

// Checks a chain. With `separate_first` the path begins at element 1, and element 0 must carry a
// signature made with the key of element 1. `verify_cb` is asked about each error on the way. After
// a failure libcrypto's error queue tells more; taking that out again is left to the caller.
[[nodiscard]] ChainOutcome checkChain(const CertificateChain& chain, bool separate_first,
                                      X509_STORE_CTX_verify_cb verify_cb);

}  // namespace zelkm
