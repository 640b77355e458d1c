// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the keymaster 4.0 types. As on the platform, no structure has default member
// initialisers: `HardwareAuthToken()` is all zero, but a plain `HardwareAuthToken token;` is
// uninitialised.

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

// The top four bits are the type, the others a number.
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
    INCLUDE_UNIQUE_ID = 0x70000000u | 202,
    BLOB_USAGE_REQUIREMENTS = 0x10000000u | 301,
    BOOTLOADER_ONLY = 0x70000000u | 302,
    ROLLBACK_RESISTANCE = 0x70000000u | 303,
    HARDWARE_TYPE = 0x10000000u | 304,
    ACTIVE_DATETIME = 0x60000000u | 400,
    ORIGINATION_EXPIRE_DATETIME = 0x60000000u | 401,
    USAGE_EXPIRE_DATETIME = 0x60000000u | 402,
    MIN_SECONDS_BETWEEN_OPS = 0x30000000u | 403,
    MAX_USES_PER_BOOT = 0x30000000u | 404,
    USER_ID = 0x30000000u | 501,
    USER_SECURE_ID = 0xA0000000u | 502,
    NO_AUTH_REQUIRED = 0x70000000u | 503,
    USER_AUTH_TYPE = 0x10000000u | 504,
    AUTH_TIMEOUT = 0x30000000u | 505,
    ALLOW_WHILE_ON_BODY = 0x70000000u | 506,
    TRUSTED_USER_PRESENCE_REQUIRED = 0x70000000u | 507,
    TRUSTED_CONFIRMATION_REQUIRED = 0x70000000u | 508,
    UNLOCKED_DEVICE_REQUIRED = 0x70000000u | 509,
    APPLICATION_ID = 0x90000000u | 601,
    APPLICATION_DATA = 0x90000000u | 700,
    CREATION_DATETIME = 0x60000000u | 701,
    ORIGIN = 0x10000000u | 702,
    ROOT_OF_TRUST = 0x90000000u | 704,
    OS_VERSION = 0x30000000u | 705,
    OS_PATCHLEVEL = 0x30000000u | 706,
    UNIQUE_ID = 0x90000000u | 707,
    ATTESTATION_CHALLENGE = 0x90000000u | 708,
    ATTESTATION_APPLICATION_ID = 0x90000000u | 709,
    ATTESTATION_ID_BRAND = 0x90000000u | 710,
    ATTESTATION_ID_DEVICE = 0x90000000u | 711,
    ATTESTATION_ID_PRODUCT = 0x90000000u | 712,
    ATTESTATION_ID_SERIAL = 0x90000000u | 713,
    ATTESTATION_ID_IMEI = 0x90000000u | 714,
    ATTESTATION_ID_MEID = 0x90000000u | 715,
    ATTESTATION_ID_MANUFACTURER = 0x90000000u | 716,
    ATTESTATION_ID_MODEL = 0x90000000u | 717,
    VENDOR_PATCHLEVEL = 0x30000000u | 718,
    BOOT_PATCHLEVEL = 0x30000000u | 719,
    ASSOCIATED_DATA = 0x90000000u | 1000,
    NONCE = 0x90000000u | 1001,
    MAC_LENGTH = 0x30000000u | 1003,
    RESET_SINCE_ID_ROTATION = 0x70000000u | 1004,
    CONFIRMATION_TOKEN = 0x90000000u | 1005,
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
    ROOT_OF_TRUST_ALREADY_SET = -1,
    UNSUPPORTED_PURPOSE = -2,
    INCOMPATIBLE_PURPOSE = -3,
    UNSUPPORTED_ALGORITHM = -4,
    INCOMPATIBLE_ALGORITHM = -5,
    UNSUPPORTED_KEY_SIZE = -6,
    UNSUPPORTED_BLOCK_MODE = -7,
    INCOMPATIBLE_BLOCK_MODE = -8,
    UNSUPPORTED_MAC_LENGTH = -9,
    UNSUPPORTED_PADDING_MODE = -10,
    INCOMPATIBLE_PADDING_MODE = -11,
    UNSUPPORTED_DIGEST = -12,
    INCOMPATIBLE_DIGEST = -13,
    INVALID_EXPIRATION_TIME = -14,
    INVALID_USER_ID = -15,
    INVALID_AUTHORIZATION_TIMEOUT = -16,
    UNSUPPORTED_KEY_FORMAT = -17,
    INCOMPATIBLE_KEY_FORMAT = -18,
    UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM = -19,
    UNSUPPORTED_KEY_VERIFICATION_ALGORITHM = -20,
    INVALID_INPUT_LENGTH = -21,
    KEY_EXPORT_OPTIONS_INVALID = -22,
    DELEGATION_NOT_ALLOWED = -23,
    KEY_NOT_YET_VALID = -24,
    KEY_EXPIRED = -25,
    KEY_USER_NOT_AUTHENTICATED = -26,
    OUTPUT_PARAMETER_NULL = -27,
    INVALID_OPERATION_HANDLE = -28,
    INSUFFICIENT_BUFFER_SPACE = -29,
    VERIFICATION_FAILED = -30,
    TOO_MANY_OPERATIONS = -31,
    UNEXPECTED_NULL_POINTER = -32,
    INVALID_KEY_BLOB = -33,
    IMPORTED_KEY_NOT_ENCRYPTED = -34,
    IMPORTED_KEY_DECRYPTION_FAILED = -35,
    IMPORTED_KEY_NOT_SIGNED = -36,
    IMPORTED_KEY_VERIFICATION_FAILED = -37,
    INVALID_ARGUMENT = -38,
    UNSUPPORTED_TAG = -39,
    INVALID_TAG = -40,
    MEMORY_ALLOCATION_FAILED = -41,
    IMPORT_PARAMETER_MISMATCH = -44,
    SECURE_HW_ACCESS_DENIED = -45,
    OPERATION_CANCELLED = -46,
    CONCURRENT_ACCESS_CONFLICT = -47,
    SECURE_HW_BUSY = -48,
    SECURE_HW_COMMUNICATION_FAILED = -49,
    UNSUPPORTED_EC_FIELD = -50,
    MISSING_NONCE = -51,
    INVALID_NONCE = -52,
    MISSING_MAC_LENGTH = -53,
    KEY_RATE_LIMIT_EXCEEDED = -54,
    CALLER_NONCE_PROHIBITED = -55,
    KEY_MAX_OPS_EXCEEDED = -56,
    INVALID_MAC_LENGTH = -57,
    MISSING_MIN_MAC_LENGTH = -58,
    UNSUPPORTED_MIN_MAC_LENGTH = -59,
    UNSUPPORTED_KDF = -60,
    UNSUPPORTED_EC_CURVE = -61,
    KEY_REQUIRES_UPGRADE = -62,
    ATTESTATION_CHALLENGE_MISSING = -63,
    KEYMASTER_NOT_CONFIGURED = -64,
    ATTESTATION_APPLICATION_ID_MISSING = -65,
    CANNOT_ATTEST_IDS = -66,
    ROLLBACK_RESISTANCE_UNAVAILABLE = -67,
    HARDWARE_TYPE_UNAVAILABLE = -68,
    PROOF_OF_PRESENCE_REQUIRED = -69,
    CONCURRENT_PROOF_OF_PRESENCE_REQUESTED = -70,
    NO_USER_CONFIRMATION = -71,
    DEVICE_LOCKED = -72,
    UNIMPLEMENTED = -100,
    VERSION_MISMATCH = -101,
    UNKNOWN_ERROR = -1000,
};

struct KeyParameter final {
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

struct KeyCharacteristics final {
    hidl_vec<KeyParameter> softwareEnforced;
    hidl_vec<KeyParameter> hardwareEnforced;
};

struct HardwareAuthToken final {
    uint64_t challenge;
    uint64_t userId;
    uint64_t authenticatorId;
    HardwareAuthenticatorType authenticatorType;
    uint64_t timestamp;
    hidl_vec<uint8_t> mac;
};

struct VerificationToken final {
    uint64_t challenge;
    uint64_t timestamp;
    hidl_vec<KeyParameter> parametersVerified;
    SecurityLevel securityLevel;
    hidl_vec<uint8_t> mac;
};

struct HmacSharingParameters final {
    hidl_vec<uint8_t> seed;
    hidl_array<uint8_t, 32> nonce;
};

}  // namespace V4_0
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
