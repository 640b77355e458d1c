// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One open AES-GCM operation, with the rules that a keymaster has for it.

#pragma once

#include <cstddef>
#include <cstdint>

#include "aes_gcm.h"
#include "key_blob.h"
#include "params.h"

namespace soft_keymaster {

class AesGcmOperation {
  public:
    // Begins: `params` is what the caller asks for, `key` what the key allows. Adds the nonce
    // to `out_params` when encrypting: the caller's, or a fresh one. Every function throws the
    // error that the keymaster is to answer, which ends the operation.
    AesGcmOperation(KeyPurpose purpose, const Key& key, const Params& params, Params& out_params);

    // Takes the associated data of `params`, then at most `max_input` bytes of the input.
    // `consumed` says how many. The output is written once.
    hidl_vec<uint8_t> update(const Params& params, const hidl_vec<uint8_t>& input, size_t max_input,
                             uint32_t& consumed);
    // As update() with all of the input, then the end: the output closes with the tag when
    // encrypting; when decrypting, the tag is the end of all the input.
    hidl_vec<uint8_t> finish(const Params& params, const hidl_vec<uint8_t>& input);

  private:
    void addAssociatedData(const Params& params);
    // The most output that `size` bytes of input can make now.
    size_t outputSize(size_t size) const;
    void process(const uint8_t* in, size_t size, uint8_t* out);

    AesGcm::Mode mode_;
    size_t tag_size_;
    AesGcm cipher_;
    bool payload_begun_ = false;
    // Decryption: the last bytes of the input so far, which may turn out to be the tag.
    uint8_t held_[AesGcm::kTagSize] = {};
    size_t held_size_ = 0;
};

}  // namespace soft_keymaster
