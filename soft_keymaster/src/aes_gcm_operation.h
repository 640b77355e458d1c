// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One open AES-GCM operation, with the checks that a keymaster makes.

#pragma once

#include <cstddef>
#include <cstdint>

#include "aes_gcm.h"
#include "key_blob.h"
#include "params.h"

namespace soft_keymaster {

class AesGcmOperation {
  public:
    // Begins. `params` is what the caller asks for, `key` what the key allows. When encrypting,
    // adds the nonce to `out_params`: the caller's, or a fresh one. This and the functions below
    // throw the error that the keymaster must return. An error ends the operation.
    AesGcmOperation(KeyPurpose purpose, const Key& key, const Params& params,
                    std::vector<KeyParameter>& out_params);

    // Takes the associated data of `params`, and then at most `max_input` bytes of the input.
    // `consumed` receives their number.
    Bytes update(const Params& params, const hidl_vec<uint8_t>& input, size_t max_input,
                 uint32_t& consumed);
    // Takes the rest of the input like update(), and ends the operation. When encrypting, the
    // output ends with the tag. When decrypting, the tag is the end of all the input.
    Bytes finish(const Params& params, const hidl_vec<uint8_t>& input);

  private:
    void addAssociatedData(const Params& params);
    // The most output that the next `size` bytes of input can make.
    size_t outputSize(size_t size) const;
    void process(const uint8_t* in, size_t size, uint8_t* out);

    AesGcm::Mode mode_;
    size_t tag_size_;
    AesGcm cipher_;
    bool payload_begun_ = false;
    // Decryption only: the last bytes of the input so far. They are the tag, if no more input
    // comes.
    uint8_t held_[AesGcm::kTagSize] = {};
    size_t held_size_ = 0;
};

}  // namespace soft_keymaster
