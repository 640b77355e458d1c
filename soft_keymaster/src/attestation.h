// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Attestation: the authority that certifies keys, and certificate requests.

#pragma once

#include <string>

#include "common.h"

namespace soft_keymaster {

class AttestationAuthority {
  public:
    // Loads the authority kept in the file `path` (PEM: the issuing key, its certificate, the
    // root's certificate), or makes one. The root's key is thrown away once it has signed.
    // KEYMASTER_NOT_CONFIGURED for a file that holds anything else.
    explicit AttestationAuthority(const std::string& path);

    // A chain for the public half of `key`, in DER: a leaf that carries `key_description` in the
    // attestation extension, the issuer, the root.
    hidl_vec<hidl_vec<uint8_t>> certify(EVP_PKEY* key, const Bytes& key_description) const;

  private:
    PkeyPtr issuer_key_;
    X509Ptr issuer_;
    X509Ptr root_;
};

// A PKCS#10 request for `key`, signed by it, in DER.
hidl_vec<uint8_t> makeCertificateRequest(EVP_PKEY* key);

}  // namespace soft_keymaster
