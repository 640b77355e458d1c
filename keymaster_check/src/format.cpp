// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "format.h"

#include <algorithm>
#include <cstdio>

#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {
namespace {

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
    {ErrorCode::ROOT_OF_TRUST_ALREADY_SET, "ROOT_OF_TRUST_ALREADY_SET"},
    {ErrorCode::UNSUPPORTED_PURPOSE, "UNSUPPORTED_PURPOSE"},
    {ErrorCode::INCOMPATIBLE_PURPOSE, "INCOMPATIBLE_PURPOSE"},
    {ErrorCode::UNSUPPORTED_ALGORITHM, "UNSUPPORTED_ALGORITHM"},
    {ErrorCode::INCOMPATIBLE_ALGORITHM, "INCOMPATIBLE_ALGORITHM"},
    {ErrorCode::UNSUPPORTED_KEY_SIZE, "UNSUPPORTED_KEY_SIZE"},
    {ErrorCode::UNSUPPORTED_BLOCK_MODE, "UNSUPPORTED_BLOCK_MODE"},
    {ErrorCode::INCOMPATIBLE_BLOCK_MODE, "INCOMPATIBLE_BLOCK_MODE"},
    {ErrorCode::UNSUPPORTED_MAC_LENGTH, "UNSUPPORTED_MAC_LENGTH"},
    {ErrorCode::UNSUPPORTED_PADDING_MODE, "UNSUPPORTED_PADDING_MODE"},
    {ErrorCode::INCOMPATIBLE_PADDING_MODE, "INCOMPATIBLE_PADDING_MODE"},
    {ErrorCode::UNSUPPORTED_DIGEST, "UNSUPPORTED_DIGEST"},
    {ErrorCode::INCOMPATIBLE_DIGEST, "INCOMPATIBLE_DIGEST"},
    {ErrorCode::INVALID_EXPIRATION_TIME, "INVALID_EXPIRATION_TIME"},
    {ErrorCode::INVALID_USER_ID, "INVALID_USER_ID"},
    {ErrorCode::INVALID_AUTHORIZATION_TIMEOUT, "INVALID_AUTHORIZATION_TIMEOUT"},
    {ErrorCode::UNSUPPORTED_KEY_FORMAT, "UNSUPPORTED_KEY_FORMAT"},
    {ErrorCode::INCOMPATIBLE_KEY_FORMAT, "INCOMPATIBLE_KEY_FORMAT"},
    {ErrorCode::UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM, "UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM"},
    {ErrorCode::UNSUPPORTED_KEY_VERIFICATION_ALGORITHM, "UNSUPPORTED_KEY_VERIFICATION_ALGORITHM"},
    {ErrorCode::INVALID_INPUT_LENGTH, "INVALID_INPUT_LENGTH"},
    {ErrorCode::KEY_EXPORT_OPTIONS_INVALID, "KEY_EXPORT_OPTIONS_INVALID"},
    {ErrorCode::DELEGATION_NOT_ALLOWED, "DELEGATION_NOT_ALLOWED"},
    {ErrorCode::KEY_NOT_YET_VALID, "KEY_NOT_YET_VALID"},
    {ErrorCode::KEY_EXPIRED, "KEY_EXPIRED"},
    {ErrorCode::KEY_USER_NOT_AUTHENTICATED, "KEY_USER_NOT_AUTHENTICATED"},
    {ErrorCode::OUTPUT_PARAMETER_NULL, "OUTPUT_PARAMETER_NULL"},
    {ErrorCode::INVALID_OPERATION_HANDLE, "INVALID_OPERATION_HANDLE"},
    {ErrorCode::INSUFFICIENT_BUFFER_SPACE, "INSUFFICIENT_BUFFER_SPACE"},
    {ErrorCode::VERIFICATION_FAILED, "VERIFICATION_FAILED"},
    {ErrorCode::TOO_MANY_OPERATIONS, "TOO_MANY_OPERATIONS"},
    {ErrorCode::UNEXPECTED_NULL_POINTER, "UNEXPECTED_NULL_POINTER"},
    {ErrorCode::INVALID_KEY_BLOB, "INVALID_KEY_BLOB"},
    {ErrorCode::IMPORTED_KEY_NOT_ENCRYPTED, "IMPORTED_KEY_NOT_ENCRYPTED"},
    {ErrorCode::IMPORTED_KEY_DECRYPTION_FAILED, "IMPORTED_KEY_DECRYPTION_FAILED"},
    {ErrorCode::IMPORTED_KEY_NOT_SIGNED, "IMPORTED_KEY_NOT_SIGNED"},
    {ErrorCode::IMPORTED_KEY_VERIFICATION_FAILED, "IMPORTED_KEY_VERIFICATION_FAILED"},
    {ErrorCode::INVALID_ARGUMENT, "INVALID_ARGUMENT"},
    {ErrorCode::UNSUPPORTED_TAG, "UNSUPPORTED_TAG"},
    {ErrorCode::INVALID_TAG, "INVALID_TAG"},
    {ErrorCode::MEMORY_ALLOCATION_FAILED, "MEMORY_ALLOCATION_FAILED"},
    {ErrorCode::IMPORT_PARAMETER_MISMATCH, "IMPORT_PARAMETER_MISMATCH"},
    {ErrorCode::SECURE_HW_ACCESS_DENIED, "SECURE_HW_ACCESS_DENIED"},
    {ErrorCode::OPERATION_CANCELLED, "OPERATION_CANCELLED"},
    {ErrorCode::CONCURRENT_ACCESS_CONFLICT, "CONCURRENT_ACCESS_CONFLICT"},
    {ErrorCode::SECURE_HW_BUSY, "SECURE_HW_BUSY"},
    {ErrorCode::SECURE_HW_COMMUNICATION_FAILED, "SECURE_HW_COMMUNICATION_FAILED"},
    {ErrorCode::UNSUPPORTED_EC_FIELD, "UNSUPPORTED_EC_FIELD"},
    {ErrorCode::MISSING_NONCE, "MISSING_NONCE"},
    {ErrorCode::INVALID_NONCE, "INVALID_NONCE"},
    {ErrorCode::MISSING_MAC_LENGTH, "MISSING_MAC_LENGTH"},
    {ErrorCode::KEY_RATE_LIMIT_EXCEEDED, "KEY_RATE_LIMIT_EXCEEDED"},
    {ErrorCode::CALLER_NONCE_PROHIBITED, "CALLER_NONCE_PROHIBITED"},
    {ErrorCode::KEY_MAX_OPS_EXCEEDED, "KEY_MAX_OPS_EXCEEDED"},
    {ErrorCode::INVALID_MAC_LENGTH, "INVALID_MAC_LENGTH"},
    {ErrorCode::MISSING_MIN_MAC_LENGTH, "MISSING_MIN_MAC_LENGTH"},
    {ErrorCode::UNSUPPORTED_MIN_MAC_LENGTH, "UNSUPPORTED_MIN_MAC_LENGTH"},
    {ErrorCode::UNSUPPORTED_KDF, "UNSUPPORTED_KDF"},
    {ErrorCode::UNSUPPORTED_EC_CURVE, "UNSUPPORTED_EC_CURVE"},
    {ErrorCode::KEY_REQUIRES_UPGRADE, "KEY_REQUIRES_UPGRADE"},
    {ErrorCode::ATTESTATION_CHALLENGE_MISSING, "ATTESTATION_CHALLENGE_MISSING"},
    {ErrorCode::KEYMASTER_NOT_CONFIGURED, "KEYMASTER_NOT_CONFIGURED"},
    {ErrorCode::ATTESTATION_APPLICATION_ID_MISSING, "ATTESTATION_APPLICATION_ID_MISSING"},
    {ErrorCode::CANNOT_ATTEST_IDS, "CANNOT_ATTEST_IDS"},
    {ErrorCode::ROLLBACK_RESISTANCE_UNAVAILABLE, "ROLLBACK_RESISTANCE_UNAVAILABLE"},
    {ErrorCode::HARDWARE_TYPE_UNAVAILABLE, "HARDWARE_TYPE_UNAVAILABLE"},
    {ErrorCode::PROOF_OF_PRESENCE_REQUIRED, "PROOF_OF_PRESENCE_REQUIRED"},
    {ErrorCode::CONCURRENT_PROOF_OF_PRESENCE_REQUESTED, "CONCURRENT_PROOF_OF_PRESENCE_REQUESTED"},
    {ErrorCode::NO_USER_CONFIRMATION, "NO_USER_CONFIRMATION"},
    {ErrorCode::DEVICE_LOCKED, "DEVICE_LOCKED"},
    {ErrorCode::UNIMPLEMENTED, "UNIMPLEMENTED"},
    {ErrorCode::VERSION_MISMATCH, "VERSION_MISMATCH"},
    {ErrorCode::UNKNOWN_ERROR, "UNKNOWN_ERROR"},
};

std::string describeValue(const KeyParameter& param) {
    switch (static_cast<TagType>(static_cast<uint32_t>(param.tag) & 0xF0000000u)) {
        case TagType::BYTES:
        case TagType::BIGNUM:
            return describe(param.blob.data(), param.blob.size());
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

std::string describe(const uint8_t* data, size_t size) {
    std::string text = std::to_string(size) + (size == 1 ? " byte" : " bytes");
    for (size_t i = 0; i < std::min(size, kShownBytes); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), i == 0 ? " %02x" : "%02x", data[i]);
        text += digits;
    }
    return text + (size > kShownBytes ? "..." : "");
}

std::string describe(const Params& params) {
    std::string text;
    for (size_t i = 0; i < params.size(); ++i) {
        text += (i == 0 ? "" : ", ") + describeTag(params[i].tag) + " " + describeValue(params[i]);
    }
    return "[" + text + "]";
}

std::string describeTag(Tag tag) {
    for (const TagName& known : kTagNames) {
        if (known.tag == tag) {
            return known.name;
        }
    }
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(tag));
    return text;
}

std::string describeCode(int code) {
    for (const CodeName& known : kCodeNames) {
        if (static_cast<int>(known.code) == code) {
            return std::to_string(code) + " " + known.name;
        }
    }
    return std::to_string(code);
}

}  // namespace keymaster_check
