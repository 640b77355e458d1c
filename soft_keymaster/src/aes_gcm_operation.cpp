// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "aes_gcm_operation.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace soft_keymaster {

using android::hardware::keymaster::V4_0::BlockMode;
using android::hardware::keymaster::V4_0::PaddingMode;

namespace {

AesGcm::Mode modeOf(KeyPurpose purpose, const Key& key) {
    require(purpose == KeyPurpose::ENCRYPT || purpose == KeyPurpose::DECRYPT,
            ErrorCode::UNSUPPORTED_PURPOSE);
    require(hasEnum(key.characteristics, Tag::PURPOSE, purpose), ErrorCode::INCOMPATIBLE_PURPOSE);
    return purpose == KeyPurpose::ENCRYPT ? AesGcm::Mode::kEncrypt : AesGcm::Mode::kDecrypt;
}

// The value of this tag, which must be one of these. One that is absent, repeated or unknown counts
// as not given, and is an error.
template <typename Enum>
Enum oneOf(const Params& params, Tag tag, std::initializer_list<Enum> known, ErrorCode error) {
    const auto given = static_cast<Enum>(findInteger(params, tag).value_or(UINT32_MAX));
    const auto count = std::count_if(params.begin(), params.end(),
                                     [tag](const KeyParameter& entry) { return entry.tag == tag; });
    require(count == 1 && std::find(known.begin(), known.end(), given) != known.end(), error);
    return given;
}

// Makes all checks that do not concern the nonce. Returns the tag size that was asked for, in
// bytes.
size_t checkParams(const Key& key, const Params& params) {
    const BlockMode block_mode = oneOf(
        params, Tag::BLOCK_MODE, {BlockMode::ECB, BlockMode::CBC, BlockMode::CTR, BlockMode::GCM},
        ErrorCode::UNSUPPORTED_BLOCK_MODE);
    require(hasEnum(key.characteristics, Tag::BLOCK_MODE, block_mode),
            ErrorCode::INCOMPATIBLE_BLOCK_MODE);
    require(block_mode == BlockMode::GCM, ErrorCode::UNSUPPORTED_BLOCK_MODE);
    const PaddingMode padding = oneOf(
        params, Tag::PADDING,
        {PaddingMode::NONE, PaddingMode::RSA_OAEP, PaddingMode::RSA_PSS,
         PaddingMode::RSA_PKCS1_1_5_ENCRYPT, PaddingMode::RSA_PKCS1_1_5_SIGN, PaddingMode::PKCS7},
        ErrorCode::UNSUPPORTED_PADDING_MODE);
    require(hasEnum(key.characteristics, Tag::PADDING, padding) && padding == PaddingMode::NONE,
            ErrorCode::INCOMPATIBLE_PADDING_MODE);
    const auto mac_length = findInteger(params, Tag::MAC_LENGTH);
    require(mac_length.has_value(), ErrorCode::MISSING_MAC_LENGTH);
    require(*mac_length % 8 == 0 && *mac_length <= AesGcm::kMaxMacBits,
            ErrorCode::UNSUPPORTED_MAC_LENGTH);
    require(*mac_length >= findInteger(key.characteristics, Tag::MIN_MAC_LENGTH).value_or(0),
            ErrorCode::INVALID_MAC_LENGTH);
    return *mac_length / 8;
}

Bytes chooseNonce(AesGcm::Mode mode, const Key& key, const Params& params,
                  std::vector<KeyParameter>& out_params) {
    Bytes nonce;
    const KeyParameter* given = findParam(params, Tag::NONCE);
    if (given != nullptr) {
        require(mode == AesGcm::Mode::kDecrypt ||
                    findParam(key.characteristics, Tag::CALLER_NONCE) != nullptr,
                ErrorCode::CALLER_NONCE_PROHIBITED);
        require(given->blob.size() == AesGcm::kNonceSize, ErrorCode::INVALID_NONCE);
        nonce = given->blob;
    } else {
        require(mode == AesGcm::Mode::kEncrypt, ErrorCode::MISSING_NONCE);
        nonce = randomBytes(AesGcm::kNonceSize);
    }
    if (mode == AesGcm::Mode::kEncrypt) {
        out_params = {param(Tag::NONCE, nonce)};
    }
    return nonce;
}

}  // namespace

AesGcmOperation::AesGcmOperation(KeyPurpose purpose, const Key& key, const Params& params,
                                 std::vector<KeyParameter>& out_params)
    : mode_(modeOf(purpose, key)),
      tag_size_(checkParams(key, params)),
      cipher_(mode_, key.material, chooseNonce(mode_, key, params, out_params).data()) {}

Bytes AesGcmOperation::update(const Params& params, const hidl_vec<uint8_t>& input,
                              size_t max_input, uint32_t& consumed) {
    addAssociatedData(params);
    const size_t size = std::min(input.size(), max_input);
    Bytes output(outputSize(size));
    process(input.data(), size, output.data());
    consumed = static_cast<uint32_t>(size);
    return output;
}

Bytes AesGcmOperation::finish(const Params& params, const hidl_vec<uint8_t>& input) {
    addAssociatedData(params);
    const size_t payload = outputSize(input.size());
    Bytes output;
    if (mode_ == AesGcm::Mode::kEncrypt) {
        output.resize(payload + tag_size_);
        process(input.data(), input.size(), output.data());
        cipher_.finish(output.data() + payload, tag_size_);
        return output;
    }
    output.resize(payload);
    process(input.data(), input.size(), output.data());
    require(held_size_ == tag_size_, ErrorCode::INVALID_INPUT_LENGTH);
    require(cipher_.verify(held_, held_size_), ErrorCode::VERIFICATION_FAILED);
    return output;
}

void AesGcmOperation::addAssociatedData(const Params& params) {
    const KeyParameter* data = findParam(params, Tag::ASSOCIATED_DATA);  // only the first counts
    if (data != nullptr) {
        require(!payload_begun_, ErrorCode::INVALID_TAG);
        cipher_.addAssociatedData(data->blob.data(), data->blob.size());
    }
}

size_t AesGcmOperation::outputSize(size_t size) const {
    if (mode_ == AesGcm::Mode::kEncrypt) {
        return size;
    }
    const size_t total = held_size_ + size;
    return total > tag_size_ ? total - tag_size_ : 0;
}

void AesGcmOperation::process(const uint8_t* in, size_t size, uint8_t* out) {
    if (size == 0) {
        return;
    }
    payload_begun_ = true;
    if (mode_ == AesGcm::Mode::kEncrypt) {
        cipher_.update(in, size, out);
        return;
    }
    // The output comes from the held bytes first, and then from the input. The last tag_size_ bytes
    // are held.
    const size_t leaving = outputSize(size);
    const size_t from_held = std::min(leaving, held_size_);
    const size_t from_input = leaving - from_held;
    cipher_.update(held_, from_held, out);
    cipher_.update(in, from_input, out + from_held);
    held_size_ -= from_held;
    memmove(held_, held_ + from_held, held_size_);
    memcpy(held_ + held_size_, in + from_input, size - from_input);
    held_size_ += size - from_input;
}

}  // namespace soft_keymaster
