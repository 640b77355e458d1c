// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the keymaster's C types and tags; usable from C and C++.

#pragma once

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#endif

// An enumeration of the C kind: types above 7 come out as negative numbers, so a tag is made
// unsigned before its type is shifted down.
typedef enum {
    KM_INVALID = 0,
    KM_ENUM = 1 << 28,
    KM_ENUM_REP = 2 << 28,
    KM_UINT = 3 << 28,
    KM_UINT_REP = 4 << 28,
    KM_ULONG = 5 << 28,
    KM_DATE = 6 << 28,
    KM_BOOL = 7 << 28,
    KM_BIGNUM = (int)(8u << 28),
    KM_BYTES = (int)(9u << 28),
    KM_ULONG_REP = (int)(10u << 28),
} keymaster_tag_type_t;

typedef enum {
    KM_TAG_INVALID = KM_INVALID | 0,
    KM_TAG_PURPOSE = KM_ENUM_REP | 1,
    KM_TAG_ALGORITHM = KM_ENUM | 2,
    KM_TAG_KEY_SIZE = KM_UINT | 3,
    KM_TAG_BLOCK_MODE = KM_ENUM_REP | 4,
    KM_TAG_DIGEST = KM_ENUM_REP | 5,
    KM_TAG_PADDING = KM_ENUM_REP | 6,
    KM_TAG_CALLER_NONCE = KM_BOOL | 7,
    KM_TAG_MIN_MAC_LENGTH = KM_UINT | 8,
    KM_TAG_EC_CURVE = KM_ENUM | 10,
    KM_TAG_RSA_PUBLIC_EXPONENT = KM_ULONG | 200,
    KM_TAG_NO_AUTH_REQUIRED = KM_BOOL | 503,
    KM_TAG_APPLICATION_ID = KM_BYTES | 601,
    KM_TAG_APPLICATION_DATA = KM_BYTES | 700,
    KM_TAG_CREATION_DATETIME = KM_DATE | 701,
    KM_TAG_ORIGIN = KM_ENUM | 702,
    KM_TAG_OS_VERSION = KM_UINT | 705,
    KM_TAG_OS_PATCHLEVEL = KM_UINT | 706,
    KM_TAG_ATTESTATION_CHALLENGE = KM_BYTES | 708,
    KM_TAG_ATTESTATION_APPLICATION_ID = KM_BYTES | 709,
    KM_TAG_ASSOCIATED_DATA = KM_BYTES | 1000,
    KM_TAG_NONCE = KM_BYTES | 1001,
    KM_TAG_MAC_LENGTH = KM_UINT | 1003,
} keymaster_tag_t;

typedef enum {
    KM_ALGORITHM_RSA = 1,
    KM_ALGORITHM_EC = 3,
    KM_ALGORITHM_AES = 32,
    KM_ALGORITHM_TRIPLE_DES = 33,
    KM_ALGORITHM_HMAC = 128,
} keymaster_algorithm_t;

typedef enum {
    KM_MODE_ECB = 1,
    KM_MODE_CBC = 2,
    KM_MODE_CTR = 3,
    KM_MODE_GCM = 32,
} keymaster_block_mode_t;

typedef enum {
    KM_PAD_NONE = 1,
    KM_PAD_RSA_OAEP = 2,
    KM_PAD_RSA_PSS = 3,
    KM_PAD_RSA_PKCS1_1_5_ENCRYPT = 4,
    KM_PAD_RSA_PKCS1_1_5_SIGN = 5,
    KM_PAD_PKCS7 = 64,
} keymaster_padding_t;

typedef enum {
    KM_PURPOSE_ENCRYPT = 0,
    KM_PURPOSE_DECRYPT = 1,
    KM_PURPOSE_SIGN = 2,
    KM_PURPOSE_VERIFY = 3,
} keymaster_purpose_t;

typedef struct {
    const uint8_t* data;
    size_t data_length;
} keymaster_blob_t;

typedef struct {
    keymaster_tag_t tag;
    union {
        uint32_t enumerated;
        bool boolean;
        uint32_t integer;
        uint64_t long_integer;
        uint64_t date_time;
        keymaster_blob_t blob;
    };
} keymaster_key_param_t;

typedef struct {
    keymaster_key_param_t* params;
    size_t length;
} keymaster_key_param_set_t;

typedef enum {
    KM_ERROR_OK = 0,
    KM_ERROR_UNSUPPORTED_PURPOSE = -2,
    KM_ERROR_INCOMPATIBLE_PURPOSE = -3,
    KM_ERROR_UNSUPPORTED_ALGORITHM = -4,
    KM_ERROR_UNSUPPORTED_KEY_SIZE = -6,
    KM_ERROR_UNSUPPORTED_BLOCK_MODE = -7,
    KM_ERROR_INCOMPATIBLE_BLOCK_MODE = -8,
    KM_ERROR_UNSUPPORTED_MAC_LENGTH = -9,
    KM_ERROR_UNSUPPORTED_PADDING_MODE = -10,
    KM_ERROR_INCOMPATIBLE_PADDING_MODE = -11,
    KM_ERROR_UNSUPPORTED_DIGEST = -12,
    KM_ERROR_INVALID_INPUT_LENGTH = -21,
    KM_ERROR_INVALID_OPERATION_HANDLE = -28,
    KM_ERROR_VERIFICATION_FAILED = -30,
    KM_ERROR_TOO_MANY_OPERATIONS = -31,
    KM_ERROR_UNEXPECTED_NULL_POINTER = -32,
    KM_ERROR_INVALID_KEY_BLOB = -33,
    KM_ERROR_INVALID_ARGUMENT = -38,
    KM_ERROR_UNSUPPORTED_TAG = -39,
    KM_ERROR_INVALID_TAG = -40,
    KM_ERROR_MEMORY_ALLOCATION_FAILED = -41,
    KM_ERROR_MISSING_NONCE = -51,
    KM_ERROR_INVALID_NONCE = -52,
    KM_ERROR_MISSING_MAC_LENGTH = -53,
    KM_ERROR_CALLER_NONCE_PROHIBITED = -55,
    KM_ERROR_INVALID_MAC_LENGTH = -57,
    KM_ERROR_MISSING_MIN_MAC_LENGTH = -58,
    KM_ERROR_UNSUPPORTED_EC_CURVE = -61,
    KM_ERROR_KEY_REQUIRES_UPGRADE = -62,
    KM_ERROR_ATTESTATION_CHALLENGE_MISSING = -63,
    KM_ERROR_KEYMASTER_NOT_CONFIGURED = -64,
    KM_ERROR_ATTESTATION_APPLICATION_ID_MISSING = -65,
    KM_ERROR_UNIMPLEMENTED = -100,
    KM_ERROR_VERSION_MISMATCH = -101,
    KM_ERROR_UNKNOWN_ERROR = -1000,
} keymaster_error_t;
