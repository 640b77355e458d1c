// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "words.h"

#include <algorithm>
#include <cstdio>

#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {
namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;
using android::hardware::keymaster::V4_0::TagType;

constexpr size_t kShownBytes = 16;

struct TagName {
    Tag tag;
    const char* name;
};

constexpr TagName kTagNames[] = {
    {Tag::PURPOSE, "PURPOSE"},
    {Tag::ALGORITHM, "ALGORITHM"},
    {Tag::KEY_SIZE, "KEY_SIZE"},
    {Tag::BLOCK_MODE, "BLOCK_MODE"},
    {Tag::DIGEST, "DIGEST"},
    {Tag::PADDING, "PADDING"},
    {Tag::MIN_MAC_LENGTH, "MIN_MAC_LENGTH"},
    {Tag::EC_CURVE, "EC_CURVE"},
    {Tag::NO_AUTH_REQUIRED, "NO_AUTH_REQUIRED"},
    {Tag::ATTESTATION_CHALLENGE, "ATTESTATION_CHALLENGE"},
    {Tag::ATTESTATION_APPLICATION_ID, "ATTESTATION_APPLICATION_ID"},
    {Tag::ASSOCIATED_DATA, "ASSOCIATED_DATA"},
    {Tag::NONCE, "NONCE"},
    {Tag::MAC_LENGTH, "MAC_LENGTH"},
    {Tag::ORIGIN, "ORIGIN"},
    {Tag::CREATION_DATETIME, "CREATION_DATETIME"},
    {Tag::OS_VERSION, "OS_VERSION"},
    {Tag::OS_PATCHLEVEL, "OS_PATCHLEVEL"},
    {PWHW_TAG_IN_1, "IN_1"},
    {PWHW_TAG_IN_2, "IN_2"},
    {PWHW_TAG_IN_3, "IN_3"},
    {PWHW_TAG_IN_4, "IN_4"},
    {PWHW_TAG_ENCRYPTED_KEY, "ENCRYPTED_KEY"},
    {PWHW_TAG_KEY, "KEY"},
    {PWHW_TAG_TAG, "TAG"},
    {PWHW_TAG_ROT, "ROT"},
    {TAG_GENERATE_CSR, "GENERATE_CSR"},
};

struct CodeName {
    ErrorCode code;
    const char* name;
};

constexpr CodeName kCodeNames[] = {
    {ErrorCode::UNSUPPORTED_PURPOSE, "UNSUPPORTED_PURPOSE"},
    {ErrorCode::INCOMPATIBLE_PURPOSE, "INCOMPATIBLE_PURPOSE"},
    {ErrorCode::UNSUPPORTED_ALGORITHM, "UNSUPPORTED_ALGORITHM"},
    {ErrorCode::UNSUPPORTED_KEY_SIZE, "UNSUPPORTED_KEY_SIZE"},
    {ErrorCode::UNSUPPORTED_BLOCK_MODE, "UNSUPPORTED_BLOCK_MODE"},
    {ErrorCode::INCOMPATIBLE_BLOCK_MODE, "INCOMPATIBLE_BLOCK_MODE"},
    {ErrorCode::UNSUPPORTED_MAC_LENGTH, "UNSUPPORTED_MAC_LENGTH"},
    {ErrorCode::UNSUPPORTED_PADDING_MODE, "UNSUPPORTED_PADDING_MODE"},
    {ErrorCode::INCOMPATIBLE_PADDING_MODE, "INCOMPATIBLE_PADDING_MODE"},
    {ErrorCode::UNSUPPORTED_DIGEST, "UNSUPPORTED_DIGEST"},
    {ErrorCode::INVALID_INPUT_LENGTH, "INVALID_INPUT_LENGTH"},
    {ErrorCode::INVALID_OPERATION_HANDLE, "INVALID_OPERATION_HANDLE"},
    {ErrorCode::VERIFICATION_FAILED, "VERIFICATION_FAILED"},
    {ErrorCode::TOO_MANY_OPERATIONS, "TOO_MANY_OPERATIONS"},
    {ErrorCode::UNEXPECTED_NULL_POINTER, "UNEXPECTED_NULL_POINTER"},
    {ErrorCode::INVALID_KEY_BLOB, "INVALID_KEY_BLOB"},
    {ErrorCode::INVALID_ARGUMENT, "INVALID_ARGUMENT"},
    {ErrorCode::UNSUPPORTED_TAG, "UNSUPPORTED_TAG"},
    {ErrorCode::INVALID_TAG, "INVALID_TAG"},
    {ErrorCode::MEMORY_ALLOCATION_FAILED, "MEMORY_ALLOCATION_FAILED"},
    {ErrorCode::MISSING_NONCE, "MISSING_NONCE"},
    {ErrorCode::INVALID_NONCE, "INVALID_NONCE"},
    {ErrorCode::MISSING_MAC_LENGTH, "MISSING_MAC_LENGTH"},
    {ErrorCode::CALLER_NONCE_PROHIBITED, "CALLER_NONCE_PROHIBITED"},
    {ErrorCode::INVALID_MAC_LENGTH, "INVALID_MAC_LENGTH"},
    {ErrorCode::MISSING_MIN_MAC_LENGTH, "MISSING_MIN_MAC_LENGTH"},
    {ErrorCode::UNSUPPORTED_EC_CURVE, "UNSUPPORTED_EC_CURVE"},
    {ErrorCode::KEY_REQUIRES_UPGRADE, "KEY_REQUIRES_UPGRADE"},
    {ErrorCode::ATTESTATION_CHALLENGE_MISSING, "ATTESTATION_CHALLENGE_MISSING"},
    {ErrorCode::KEYMASTER_NOT_CONFIGURED, "KEYMASTER_NOT_CONFIGURED"},
    {ErrorCode::ATTESTATION_APPLICATION_ID_MISSING, "ATTESTATION_APPLICATION_ID_MISSING"},
    {ErrorCode::UNIMPLEMENTED, "UNIMPLEMENTED"},
    {ErrorCode::VERSION_MISMATCH, "VERSION_MISMATCH"},
    {ErrorCode::UNKNOWN_ERROR, "UNKNOWN_ERROR"},
};

std::string valueInWords(const KeyParameter& param) {
    switch (static_cast<TagType>(static_cast<uint32_t>(param.tag) & 0xF0000000u)) {
        case TagType::BYTES:
        case TagType::BIGNUM:
            return inWords(param.blob.data(), param.blob.size());
        case TagType::BOOL:
            return param.f.boolValue ? "true" : "false";
        case TagType::ULONG:
        case TagType::ULONG_REP:
        case TagType::DATE:
            return std::to_string(param.f.longInteger);
        default:
            return std::to_string(param.f.integer);
    }
}

}  // namespace

std::string inWords(const uint8_t* data, size_t size) {
    std::string text = std::to_string(size) + (size == 1 ? " byte" : " bytes");
    for (size_t i = 0; i < std::min(size, kShownBytes); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), i == 0 ? " %02x" : "%02x", data[i]);
        text += digits;
    }
    return text + (size > kShownBytes ? "..." : "");
}

std::string inWords(const Params& params) {
    std::string text;
    for (size_t i = 0; i < params.size(); ++i) {
        text += (i == 0 ? "" : ", ") + tagInWords(params[i].tag) + " " + valueInWords(params[i]);
    }
    return "[" + text + "]";
}

std::string tagInWords(Tag tag) {
    for (const TagName& known : kTagNames) {
        if (known.tag == tag) {
            return known.name;
        }
    }
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(tag));
    return text;
}

std::string codeInWords(int code) {
    for (const CodeName& known : kCodeNames) {
        if (static_cast<int>(known.code) == code) {
            return std::to_string(code) + " " + known.name;
        }
    }
    return std::to_string(code);
}

}  // namespace keymaster_check
