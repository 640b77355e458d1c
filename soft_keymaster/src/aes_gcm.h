// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// AES-GCM on a stream of input.

#pragma once

#include <cstddef>
#include <cstdint>

#include "common.h"
#include "velt_secure_db.h"

namespace soft_keymaster {

class AesGcm {
  public:
    static constexpr size_t kKeySize = 32;            // of the software keymaster's own keys
    static constexpr size_t kNonceSize = SDB_IV_LEN;  // as the library needs them
    static constexpr size_t kTagSize = SDB_TAG_LEN;
    static constexpr uint32_t kMaxMacBits = 8 * kTagSize;

    enum class Mode { kEncrypt, kDecrypt };

    // `key` has 16, 24 or 32 bytes, and `nonce` kNonceSize.
    AesGcm(Mode mode, const Bytes& key, const uint8_t* nonce);

    // Must not be called after update().
    void addAssociatedData(const uint8_t* data, size_t size) { update(data, size, nullptr); }
    // Writes `size` bytes to `out`, which may be `in`. Without `out` the input is associated data.
    void update(const uint8_t* in, size_t size, uint8_t* out);
    // Ends an encryption, and writes the first `size` bytes of the tag.
    void finish(uint8_t* tag, size_t size);
    // Ends a decryption. False when the tag does not match.
    [[nodiscard]] bool verify(const uint8_t* tag, size_t size);

  private:
    CipherContextPtr context_;
};

}  // namespace soft_keymaster
