// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "gcm_operation.h"

#include <algorithm>
#include <cstring>

#include "velt_secure_db.h"

namespace zelkm {
namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;

// Copies as many bytes as fit. Returns their number.
size_t copyBounded(uint8_t* to, size_t capacity, const HidlBytes& from) {
    const size_t count = std::min(capacity, from.size());
    if (count != 0) {
        std::memcpy(to, from.data(), count);
    }
    return count;
}

}  // namespace

bool GcmOperation::allocate() {
    input_ = buffers_.plain;
    input_len_ = buffers_.len;
    if (decrypt_) {
        input_len_ += SDB_TAG_LEN;
        tagged_cipher_ = allocateBuffer(input_len_);
        if (tagged_cipher_ == nullptr) {
            return false;
        }
        std::memcpy(tagged_cipher_.get(), buffers_.cipher, buffers_.len);
        std::memcpy(tagged_cipher_.get() + buffers_.len, buffers_.tag, SDB_TAG_LEN);
        input_ = tagged_cipher_.get();
    }
    output_ = allocateSecretBuffer(buffers_.len);
    if (!decrypt_) {
        output_.get_deleter().len = 0;  // ciphertext need not be wiped
    }
    return output_ != nullptr;
}

void GcmOperation::begun(ErrorCode error, const HidlParams& out_params, uint64_t handle) {
    error_ = static_cast<int32_t>(error);
    if (error_ != ZELKM_OK) {
        return;
    }
    handle_ = handle;
    if (decrypt_) {
        return;
    }
    const KeyParameter* nonce = findParameter(out_params, Tag::NONCE);
    if (nonce == nullptr) {
        nonce_missing_ = true;
        error_ = ZELKM_MISSING_NONCE;
        return;
    }
    copyBounded(buffers_.iv, SDB_IV_LEN, nonce->blob);
}

void GcmOperation::updated(ErrorCode error, uint32_t consumed, const HidlBytes& output) {
    error_ = static_cast<int32_t>(error);
    last_consumed_ = consumed;
    output_len_ += copyBounded(output_.get() + output_len_, buffers_.len - output_len_, output);
}

void GcmOperation::finished(ErrorCode error, const HidlBytes& output) {
    error_ = static_cast<int32_t>(error);
    const bool as_decryption = decrypt_ && output.size() != SDB_TAG_LEN;
    std::memcpy(as_decryption ? buffers_.plain : buffers_.cipher, output_.get(), output_len_);
    if (!as_decryption) {
        copyBounded(buffers_.tag, SDB_TAG_LEN, output);
    }
}

bool GcmOperation::advance() {
    consumed_ += last_consumed_;
    return last_consumed_ != 0 && consumed_ < input_len_;
}

HidlBytes GcmOperation::remainingInput() const {
    return viewOf(input_ + consumed_, input_len_ - consumed_);
}

}  // namespace zelkm
