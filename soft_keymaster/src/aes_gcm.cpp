// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "aes_gcm.h"

#include <algorithm>

namespace soft_keymaster {

namespace {

// OpenSSL's lengths are of type int, while a keymaster's lengths reach 2^32 - 1.
constexpr size_t kMaxStep = size_t{1} << 30;

}  // namespace

AesGcm::AesGcm(Mode mode, const Bytes& key, const uint8_t* nonce) : context_(EVP_CIPHER_CTX_new()) {
    const EVP_CIPHER* const cipher = key.size() == 16   ? EVP_aes_128_gcm()
                                     : key.size() == 24 ? EVP_aes_192_gcm()
                                     : key.size() == 32 ? EVP_aes_256_gcm()
                                                        : nullptr;
    requireSsl(context_ != nullptr && cipher != nullptr &&
               EVP_CipherInit_ex(context_.get(), cipher, nullptr, key.data(), nonce,
                                 mode == Mode::kEncrypt ? 1 : 0) == 1);
}

void AesGcm::update(const uint8_t* in, size_t size, uint8_t* out) {
    for (size_t done = 0; done < size;) {
        const size_t step = std::min(size - done, kMaxStep);
        int written = 0;
        requireSsl(EVP_CipherUpdate(context_.get(), out == nullptr ? nullptr : out + done, &written,
                                    in + done, static_cast<int>(step)) == 1);
        done += step;
    }
}

void AesGcm::finish(uint8_t* tag, size_t size) {
    uint8_t rest[kTagSize];
    int written = 0;
    requireSsl(EVP_CipherFinal_ex(context_.get(), rest, &written) == 1 &&
               EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(size),
                                   tag) == 1);
}

bool AesGcm::verify(const uint8_t* tag, size_t size) {
    uint8_t rest[kTagSize];
    int written = 0;
    requireSsl(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(size),
                                   const_cast<uint8_t*>(tag)) == 1);
    return EVP_CipherFinal_ex(context_.get(), rest, &written) == 1;
}

}  // namespace soft_keymaster
