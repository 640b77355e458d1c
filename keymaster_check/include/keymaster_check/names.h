// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The names of calls, codes and tags.

#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "keymaster_check/client.h"
#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {

// The name of the member of IKeymasterDevice.
inline const char* callName(Call call) {
    static constexpr const char* kNames[] = {
        "generateKey", "importKey", "getKeyCharacteristics",
        "exportKey",   "attestKey", "upgradeKey",
        "deleteKey",   "begin",     "update",
        "finish",      "abort",
    };
    return kNames[static_cast<size_t>(call)];
}

// The name of a keymaster's error code, or of the library's own; null for any other number.
inline const char* codeName(int code) {
    static constexpr struct {
        int code;
        const char* name;
    } kNames[] = {
        {0, "OK"},
        {-1, "ROOT_OF_TRUST_ALREADY_SET"},
        {-2, "UNSUPPORTED_PURPOSE"},
        {-3, "INCOMPATIBLE_PURPOSE"},
        {-4, "UNSUPPORTED_ALGORITHM"},
        {-5, "INCOMPATIBLE_ALGORITHM"},
        {-6, "UNSUPPORTED_KEY_SIZE"},
        {-7, "UNSUPPORTED_BLOCK_MODE"},
        {-8, "INCOMPATIBLE_BLOCK_MODE"},
        {-9, "UNSUPPORTED_MAC_LENGTH"},
        {-10, "UNSUPPORTED_PADDING_MODE"},
        {-11, "INCOMPATIBLE_PADDING_MODE"},
        {-12, "UNSUPPORTED_DIGEST"},
        {-13, "INCOMPATIBLE_DIGEST"},
        {-14, "INVALID_EXPIRATION_TIME"},
        {-15, "INVALID_USER_ID"},
        {-16, "INVALID_AUTHORIZATION_TIMEOUT"},
        {-17, "UNSUPPORTED_KEY_FORMAT"},
        {-18, "INCOMPATIBLE_KEY_FORMAT"},
        {-19, "UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM"},
        {-20, "UNSUPPORTED_KEY_VERIFICATION_ALGORITHM"},
        {-21, "INVALID_INPUT_LENGTH"},
        {-22, "KEY_EXPORT_OPTIONS_INVALID"},
        {-23, "DELEGATION_NOT_ALLOWED"},
        {-24, "KEY_NOT_YET_VALID"},
        {-25, "KEY_EXPIRED"},
        {-26, "KEY_USER_NOT_AUTHENTICATED"},
        {-27, "OUTPUT_PARAMETER_NULL"},
        {-28, "INVALID_OPERATION_HANDLE"},
        {-29, "INSUFFICIENT_BUFFER_SPACE"},
        {-30, "VERIFICATION_FAILED"},
        {-31, "TOO_MANY_OPERATIONS"},
        {-32, "UNEXPECTED_NULL_POINTER"},
        {-33, "INVALID_KEY_BLOB"},
        {-34, "IMPORTED_KEY_NOT_ENCRYPTED"},
        {-35, "IMPORTED_KEY_DECRYPTION_FAILED"},
        {-36, "IMPORTED_KEY_NOT_SIGNED"},
        {-37, "IMPORTED_KEY_VERIFICATION_FAILED"},
        {-38, "INVALID_ARGUMENT"},
        {-39, "UNSUPPORTED_TAG"},
        {-40, "INVALID_TAG"},
        {-41, "MEMORY_ALLOCATION_FAILED"},
        {-44, "IMPORT_PARAMETER_MISMATCH"},
        {-45, "SECURE_HW_ACCESS_DENIED"},
        {-46, "OPERATION_CANCELLED"},
        {-47, "CONCURRENT_ACCESS_CONFLICT"},
        {-48, "SECURE_HW_BUSY"},
        {-49, "SECURE_HW_COMMUNICATION_FAILED"},
        {-50, "UNSUPPORTED_EC_FIELD"},
        {-51, "MISSING_NONCE"},
        {-52, "INVALID_NONCE"},
        {-53, "MISSING_MAC_LENGTH"},
        {-54, "KEY_RATE_LIMIT_EXCEEDED"},
        {-55, "CALLER_NONCE_PROHIBITED"},
        {-56, "KEY_MAX_OPS_EXCEEDED"},
        {-57, "INVALID_MAC_LENGTH"},
        {-58, "MISSING_MIN_MAC_LENGTH"},
        {-59, "UNSUPPORTED_MIN_MAC_LENGTH"},
        {-60, "UNSUPPORTED_KDF"},
        {-61, "UNSUPPORTED_EC_CURVE"},
        {-62, "KEY_REQUIRES_UPGRADE"},
        {-63, "ATTESTATION_CHALLENGE_MISSING"},
        {-64, "KEYMASTER_NOT_CONFIGURED"},
        {-65, "ATTESTATION_APPLICATION_ID_MISSING"},
        {-66, "CANNOT_ATTEST_IDS"},
        {-67, "ROLLBACK_RESISTANCE_UNAVAILABLE"},
        {-68, "HARDWARE_TYPE_UNAVAILABLE"},
        {-69, "PROOF_OF_PRESENCE_REQUIRED"},
        {-70, "CONCURRENT_PROOF_OF_PRESENCE_REQUESTED"},
        {-71, "NO_USER_CONFIRMATION"},
        {-72, "DEVICE_LOCKED"},
        {-100, "UNIMPLEMENTED"},
        {-101, "VERSION_MISMATCH"},
        {-910, "ZELKM_UNKNOWN_COLUMN"},
        {-911, "ZELKM_SYNTAX_ERROR"},
        {-913, "ZELKM_MALFORMED_STORE"},
        {-914, "ZELKM_STALE_TABLE_HANDLE"},
        {-915, "ZELKM_PAYLOAD_TOO_LONG"},
        {-917, "ZELKM_NOTHING_DELETED"},
        {-918, "ZELKM_SECURE_DB_DISABLED"},
        {-1000, "UNKNOWN_ERROR"},
    };
    for (const auto& known : kNames) {
        if (known.code == code) {
            return known.name;
        }
    }
    return nullptr;
}

// E.g. "-33 INVALID_KEY_BLOB"; only the number for 0, and for a code without a name.
inline std::string describeCode(int code) {
    const char* name = code == 0 ? nullptr : codeName(code);
    return std::to_string(code) + (name == nullptr ? "" : std::string(" ") + name);
}
inline std::string describeCode(ErrorCode code) {
    return describeCode(static_cast<int>(code));
}

// The tag's name or, for a tag that keymasters are not asked about, its number as "0x%08X".
inline std::string describeTag(Tag tag) {
    static constexpr struct {
        Tag tag;
        const char* name;
    } kNames[] = {
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
    for (const auto& known : kNames) {
        if (known.tag == tag) {
            return known.name;
        }
    }
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(tag));
    return text;
}

}  // namespace keymaster_check
