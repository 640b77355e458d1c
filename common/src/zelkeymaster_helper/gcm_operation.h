// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The state of one AES-GCM operation of the keymaster. It follows the keymaster's answers, and
// makes no calls.
//
// The keymaster takes the tag at the end of the ciphertext. The output of the updates is collected,
// and copied out when the operation finishes: so plain and cipher may be one buffer. No size in an
// answer is trusted.

#pragma once

#include "keymaster_params.h"
#include "malloc_buffer.h"
#include "zelkeymaster_result.h"

namespace zelkm {

// The buffers of one encryption or decryption; see DBEncrypt().
struct GcmBuffers {
    uint8_t* plain;
    uint8_t* cipher;
    uint32_t len;  // of plain and of cipher
    uint8_t* iv;   // SDB_IV_LEN
    uint8_t* tag;  // SDB_TAG_LEN
};

class GcmOperation {
  public:
    // Borrows the buffers.
    GcmOperation(bool decrypt, const GcmBuffers& buffers) : decrypt_(decrypt), buffers_(buffers) {}

    // To be called first. False when out of memory.
    [[nodiscard]] bool allocate();

    // Take an answer of the keymaster. An encryption whose begin brings no nonce fails with -51.
    void begun(android::hardware::keymaster::V4_0::ErrorCode error, const HidlParams& out_params,
               uint64_t handle);
    void updated(android::hardware::keymaster::V4_0::ErrorCode error, uint32_t consumed,
                 const HidlBytes& output);
    // Takes the last answer, and fills the buffers whatever the error is. A decryption that ends
    // with 16 bytes of output is taken for an encryption.
    void finished(android::hardware::keymaster::V4_0::ErrorCode error, const HidlBytes& output);

    // Counts the input that the last update took. False when another update is of no use.
    bool advance();

    // A view of the input that is not consumed yet.
    HidlBytes remainingInput() const;

    bool decrypts() const { return decrypt_; }
    int32_t error() const { return error_; }  // the last answer; -1000 before the first
    uint64_t handle() const { return handle_; }
    bool nonceMissing() const { return nonce_missing_; }
    size_t consumed() const { return consumed_; }
    size_t inputLen() const { return input_len_; }

  private:
    const bool decrypt_;
    const GcmBuffers buffers_;
    MallocBuffer tagged_cipher_;  // the input of a decryption
    const uint8_t* input_ = nullptr;
    size_t input_len_ = 0;
    size_t consumed_ = 0;
    uint32_t last_consumed_ = 0;
    SecretBuffer output_;  // buffers_.len bytes
    size_t output_len_ = 0;
    int32_t error_ = ZELKM_UNKNOWN_ERROR;
    uint64_t handle_ = 0;
    bool nonce_missing_ = false;
};

}  // namespace zelkm
