// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The answer has room for the material and a tag of 16 bytes only, and not for a random nonce. So
// the tag is a synthetic nonce: an HMAC of the material, with which the CTR key stream starts.
// Equal inputs therefore give equal answers, and nothing else shows.

#include "password_conversion.h"

#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <array>

#include "zelkeymaster_vendor_tags.h"

namespace soft_keymaster {

namespace {

constexpr size_t kTagSize = 16;
constexpr size_t kRotSize = 16;
constexpr size_t kMacKeySize = 32;
constexpr size_t kCipherKeySize = 32;

using SyntheticTag = std::array<uint8_t, kTagSize>;

const hidl_vec<uint8_t>& requireBlob(const Params& params, Tag tag) {
    const KeyParameter* param = findParam(params, tag);
    require(param != nullptr && param->blob.size() > 0, ErrorCode::INVALID_ARGUMENT);
    return param->blob;
}

SyntheticTag macOf(const Bytes& keys, const Bytes& material) {
    std::array<uint8_t, EVP_MAX_MD_SIZE> mac;
    unsigned int size = 0;
    requireSsl(HMAC(EVP_sha256(), keys.data(), kMacKeySize, material.data(), material.size(),
                    mac.data(), &size) != nullptr);
    SyntheticTag tag;
    std::copy_n(mac.begin(), tag.size(), tag.begin());
    return tag;
}

// Applied twice, CTR gives its input back.
Bytes applyKeyStream(const Bytes& keys, const SyntheticTag& start, const uint8_t* in, size_t size) {
    require(size <= INT32_MAX, ErrorCode::INVALID_INPUT_LENGTH);
    const CipherContextPtr context(EVP_CIPHER_CTX_new());
    Bytes out(size);
    int written = 0;
    requireSsl(context != nullptr &&
               EVP_EncryptInit_ex(context.get(), EVP_aes_256_ctr(), nullptr,
                                  keys.data() + kMacKeySize, start.data()) == 1 &&
               EVP_EncryptUpdate(context.get(), out.data(), &written, in, static_cast<int>(size)) ==
                   1);
    return out;
}

}  // namespace

Params convertPassword(const RootKey& root_key, KeyPurpose purpose, const Params& params) {
    Bytes inputs;
    for (const Tag tag : {PWHW_TAG_IN_1, PWHW_TAG_IN_2, PWHW_TAG_IN_3, PWHW_TAG_IN_4}) {
        const hidl_vec<uint8_t>& blob = requireBlob(params, tag);
        appendBigEndian(inputs, blob.size(), 4);
        inputs.insert(inputs.end(), blob.begin(), blob.end());
    }
    const Bytes keys = root_key.derive("password conversion", inputs, kMacKeySize + kCipherKeySize);
    const KeyParameter rot = param(PWHW_TAG_ROT, root_key.derive("root of trust", {}, kRotSize));

    if (purpose == PWHW_PURPOSE_TO_KEY) {
        const Bytes material = requireBlob(params, PWHW_TAG_ENCRYPTED_KEY);
        const SyntheticTag tag = macOf(keys, material);
        const Bytes converted = applyKeyStream(keys, tag, material.data(), material.size());
        return {param(PWHW_TAG_KEY, converted), param(PWHW_TAG_TAG, Bytes(tag.begin(), tag.end())),
                rot};
    }
    const hidl_vec<uint8_t>& converted = requireBlob(params, PWHW_TAG_KEY);
    const hidl_vec<uint8_t>& given = requireBlob(params, PWHW_TAG_TAG);
    SyntheticTag tag;
    require(given.size() == tag.size(), ErrorCode::INVALID_ARGUMENT);
    std::copy(given.begin(), given.end(), tag.begin());
    const Bytes material = applyKeyStream(keys, tag, converted.data(), converted.size());
    require(CRYPTO_memcmp(macOf(keys, material).data(), tag.data(), tag.size()) == 0,
            ErrorCode::VERIFICATION_FAILED);
    return {param(PWHW_TAG_ENCRYPTED_KEY, material), rot};
}

}  // namespace soft_keymaster
