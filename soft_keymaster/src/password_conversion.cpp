// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The answer has room for the material and a tag of 16 bytes only, and not for a random nonce. So
// the tag is a synthetic nonce: an HMAC of the material, with which the CTR key stream starts.
// Equal inputs therefore give equal answers, and nothing else shows.

#include "password_conversion.h"

#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include "zelkeymaster_vendor_tags.h"

namespace soft_keymaster {

namespace {

constexpr size_t kTagSize = 16;
constexpr size_t kRotSize = 16;
constexpr size_t kMacKeySize = 32;
constexpr size_t kCipherKeySize = 32;

const hidl_vec<uint8_t>& requireBlob(const Params& params, Tag tag) {
    const KeyParameter* param = findParam(params, tag);
    require(param != nullptr && param->blob.size() > 0, ErrorCode::INVALID_ARGUMENT);
    return param->blob;
}

Bytes macOf(const Bytes& keys, const Bytes& material) {
    Bytes mac(EVP_MAX_MD_SIZE);
    requireSsl(HMAC(EVP_sha256(), keys.data(), kMacKeySize, material.data(), material.size(),
                    mac.data(), nullptr) != nullptr);
    mac.resize(kTagSize);
    return mac;
}

// Applied twice, CTR gives its input back.
Bytes applyKeyStream(const Bytes& keys, const Bytes& start, const Bytes& in) {
    require(in.size() <= INT32_MAX, ErrorCode::INVALID_INPUT_LENGTH);
    const CipherContextPtr context(EVP_CIPHER_CTX_new());
    Bytes out(in.size());
    int written = 0;
    requireSsl(context != nullptr &&
               EVP_EncryptInit_ex(context.get(), EVP_aes_256_ctr(), nullptr,
                                  keys.data() + kMacKeySize, start.data()) == 1 &&
               EVP_EncryptUpdate(context.get(), out.data(), &written, in.data(),
                                 static_cast<int>(in.size())) == 1);
    return out;
}

}  // namespace

std::vector<KeyParameter> convertPassword(const RootKey& root_key, KeyPurpose purpose,
                                          const Params& params) {
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
        const Bytes tag = macOf(keys, material);
        return {param(PWHW_TAG_KEY, applyKeyStream(keys, tag, material)), param(PWHW_TAG_TAG, tag),
                rot};
    }
    const Bytes converted = requireBlob(params, PWHW_TAG_KEY);
    const Bytes tag = requireBlob(params, PWHW_TAG_TAG);
    require(tag.size() == kTagSize, ErrorCode::INVALID_ARGUMENT);
    const Bytes material = applyKeyStream(keys, tag, converted);
    require(CRYPTO_memcmp(macOf(keys, material).data(), tag.data(), kTagSize) == 0,
            ErrorCode::VERIFICATION_FAILED);
    return {param(PWHW_TAG_ENCRYPTED_KEY, material), rot};
}

}  // namespace soft_keymaster
