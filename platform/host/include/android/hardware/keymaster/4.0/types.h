// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the keymaster 4.0 types. As on the platform no structure has default member
// initialisers: `HardwareAuthToken()` is all zero, a plain `HardwareAuthToken token;` is not.

#pragma once

#include <hidl/HidlSupport.h>

#include <cstdint>

namespace android {
namespace hardware {
namespace keymaster {
namespace V4_0 {

enum class TagType : uint32_t {
    INVALID = 0u << 28,
    ENUM = 1u << 28,
    ENUM_REP = 2u << 28,
    UINT = 3u << 28,
    UINT_REP = 4u << 28,
    ULONG = 5u << 28,
    DATE = 6u << 28,
    BOOL = 7u << 28,
    BIGNUM = 8u << 28,
    BYTES = 9u << 28,
    ULONG_REP = 10u << 28,
};

// The type in the top four bits, the number below.
enum class Tag : uint32_t {
    INVALID = 0,
    PURPOSE = 0x20000000u | 1,
    ALGORITHM = 0x10000000u | 2,
    KEY_SIZE = 0x30000000u | 3,
    BLOCK_MODE = 0x20000000u | 4,
    DIGEST = 0x20000000u | 5,
    PADDING = 0x20000000u | 6,
    CALLER_NONCE = 0x70000000u | 7,
    MIN_MAC_LENGTH = 0x30000000u | 8,
    EC_CURVE = 0x10000000u | 10,
    RSA_PUBLIC_EXPONENT = 0x50000000u | 200,
    NO_AUTH_REQUIRED = 0x70000000u | 503,
    APPLICATION_ID = 0x90000000u | 601,
    APPLICATION_DATA = 0x90000000u | 700,
    CREATION_DATETIME = 0x60000000u | 701,
    ORIGIN = 0x10000000u | 702,
    OS_VERSION = 0x30000000u | 705,
    OS_PATCHLEVEL = 0x30000000u | 706,
    ATTESTATION_CHALLENGE = 0x90000000u | 708,
    ATTESTATION_APPLICATION_ID = 0x90000000u | 709,
    ASSOCIATED_DATA = 0x90000000u | 1000,
    NONCE = 0x90000000u | 1001,
    MAC_LENGTH = 0x30000000u | 1003,
};

enum class Algorithm : uint32_t { RSA = 1, EC = 3, AES = 32, TRIPLE_DES = 33, HMAC = 128 };

enum class BlockMode : uint32_t { ECB = 1, CBC = 2, CTR = 3, GCM = 32 };

enum class PaddingMode : uint32_t {
    NONE = 1,
    RSA_OAEP = 2,
    RSA_PSS = 3,
    RSA_PKCS1_1_5_ENCRYPT = 4,
    RSA_PKCS1_1_5_SIGN = 5,
    PKCS7 = 64,
};

enum class Digest : uint32_t {
    NONE = 0,
    MD5 = 1,
    SHA1 = 2,
    SHA_2_224 = 3,
    SHA_2_256 = 4,
    SHA_2_384 = 5,
    SHA_2_512 = 6,
};

enum class EcCurve : uint32_t { P_224 = 0, P_256 = 1, P_384 = 2, P_521 = 3 };

enum class KeyPurpose : uint32_t { ENCRYPT = 0, DECRYPT = 1, SIGN = 2, VERIFY = 3, WRAP_KEY = 5 };

enum class KeyFormat : uint32_t { X509 = 0, PKCS8 = 1, RAW = 3 };

enum class KeyOrigin : uint32_t {
    GENERATED = 0,
    DERIVED = 1,
    IMPORTED = 2,
    UNKNOWN = 3,
    SECURELY_IMPORTED = 4,
};

enum class SecurityLevel : uint32_t { SOFTWARE = 0, TRUSTED_ENVIRONMENT = 1, STRONGBOX = 2 };

enum class HardwareAuthenticatorType : uint32_t {
    NONE = 0,
    PASSWORD = 1,
    FINGERPRINT = 2,
    ANY = 0xFFFFFFFFu,
};

enum class ErrorCode : int32_t {
    OK = 0,
    UNSUPPORTED_PURPOSE = -2,
    INCOMPATIBLE_PURPOSE = -3,
    UNSUPPORTED_ALGORITHM = -4,
    UNSUPPORTED_KEY_SIZE = -6,
    UNSUPPORTED_BLOCK_MODE = -7,
    INCOMPATIBLE_BLOCK_MODE = -8,
    UNSUPPORTED_MAC_LENGTH = -9,
    UNSUPPORTED_PADDING_MODE = -10,
    INCOMPATIBLE_PADDING_MODE = -11,
    UNSUPPORTED_DIGEST = -12,
    INVALID_INPUT_LENGTH = -21,
    INVALID_OPERATION_HANDLE = -28,
    VERIFICATION_FAILED = -30,
    TOO_MANY_OPERATIONS = -31,
    UNEXPECTED_NULL_POINTER = -32,
    INVALID_KEY_BLOB = -33,
    INVALID_ARGUMENT = -38,
    UNSUPPORTED_TAG = -39,
    INVALID_TAG = -40,
    MEMORY_ALLOCATION_FAILED = -41,
    MISSING_NONCE = -51,
    INVALID_NONCE = -52,
    MISSING_MAC_LENGTH = -53,
    CALLER_NONCE_PROHIBITED = -55,
    INVALID_MAC_LENGTH = -57,
    MISSING_MIN_MAC_LENGTH = -58,
    UNSUPPORTED_EC_CURVE = -61,
    KEY_REQUIRES_UPGRADE = -62,
    ATTESTATION_CHALLENGE_MISSING = -63,
    KEYMASTER_NOT_CONFIGURED = -64,
    ATTESTATION_APPLICATION_ID_MISSING = -65,
    UNIMPLEMENTED = -100,
    VERSION_MISMATCH = -101,
    UNKNOWN_ERROR = -1000,
};

struct KeyParameter {
    union IntegerParams {
        Algorithm algorithm;
        BlockMode blockMode;
        PaddingMode paddingMode;
        Digest digest;
        EcCurve ecCurve;
        KeyOrigin origin;
        KeyPurpose purpose;
        SecurityLevel hardwareType;
        bool boolValue;
        uint32_t integer;
        uint64_t longInteger;
        uint64_t dateTime;
    };

    Tag tag;
    IntegerParams f;
    hidl_vec<uint8_t> blob;
};

struct KeyCharacteristics {
    hidl_vec<KeyParameter> softwareEnforced;
    hidl_vec<KeyParameter> hardwareEnforced;
};

struct HardwareAuthToken {
    uint64_t challenge;
    uint64_t userId;
    uint64_t authenticatorId;
    HardwareAuthenticatorType authenticatorType;
    uint64_t timestamp;
    hidl_vec<uint8_t> mac;
};

struct VerificationToken {
    uint64_t challenge;
    uint64_t timestamp;
    hidl_vec<KeyParameter> parametersVerified;
    SecurityLevel securityLevel;
    hidl_vec<uint8_t> mac;
};

struct HmacSharingParameters {
    hidl_vec<uint8_t> seed;
    hidl_array<uint8_t, 32> nonce;
};

}  // namespace V4_0
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
