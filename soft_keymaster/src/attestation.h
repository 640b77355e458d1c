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
    // Loads the authority from the file `path`, or makes one. The file is PEM: the issuing key, its
    // certificate and the root's certificate. The root's key is deleted once it has signed. Throws
    // KEYMASTER_NOT_CONFIGURED for a file with any other content.
    explicit AttestationAuthority(const std::string& path);

    // The attestation chain for the public half of `key`, in DER: the leaf with `key_description`
    // in the attestation extension, the issuer, the root.
    std::vector<hidl_vec<uint8_t>> certify(EVP_PKEY* key, const Bytes& key_description) const;

  private:
    PkeyPtr issuer_key_;
    X509Ptr issuer_;
    X509Ptr root_;
};

// A PKCS#10 request for `key`, in DER, signed by that key.
Bytes makeCertificateRequest(EVP_PKEY* key);

}  // namespace soft_keymaster
