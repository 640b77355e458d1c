// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "result_codes.h"

#include <algorithm>

namespace zelkm_tool {
namespace {

constexpr char kCaller[] = "Correct the call.";
constexpr char kOwnKey[] =
    "Only a key that you pass in can have this property; the database key does not.";
constexpr char kOtherRules[] =
    "The keymaster does not support what the library asks for: AES-256-GCM with a tag of 128 bits.";
constexpr char kReport[] = "Report it to the keymaster's vendor, with the log.";
constexpr char kTryAgain[] = "Try again; if it persists, restart the keymaster service.";
constexpr char kDamaged[] =
    "The library restores nothing. Stop the process and see \"A damaged store\" in "
    "docs/diagnostics.md.";

}  // namespace

const std::vector<ResultCode>& resultCodes() {
    static const auto& codes = *new std::vector<ResultCode>{
        {0, "OK", "success", "The call did what it should.", "Nothing."},
        {-1, "ROOT_OF_TRUST_ALREADY_SET", "the root of trust is set already"},
        {-2, "UNSUPPORTED_PURPOSE", "unsupported purpose or password mode",
         "A password conversion of a type that is neither 0 nor 1, or a keymaster without password "
         "conversion (purposes 101 and 102).",
         "Correct the type, or make sure that the keymaster has the extension."},
        {-3, "INCOMPATIBLE_PURPOSE", "the key does not allow this purpose",
         "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-4, "UNSUPPORTED_ALGORITHM", "unsupported algorithm", kOtherRules, kReport},
        {-5, "INCOMPATIBLE_ALGORITHM", "the key's algorithm does not allow this",
         "A signing request for a key that cannot sign.", "Pass an RSA or EC key."},
        {-6, "UNSUPPORTED_KEY_SIZE", "unsupported key size", kOtherRules, kReport},
        {-7, "UNSUPPORTED_BLOCK_MODE", "unsupported block mode", kOtherRules, kReport},
        {-8, "INCOMPATIBLE_BLOCK_MODE", "the key does not allow this block mode",
         "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-9, "UNSUPPORTED_MAC_LENGTH", "unsupported length of the authentication tag", kOtherRules,
         kReport},
        {-10, "UNSUPPORTED_PADDING_MODE", "unsupported padding mode", kOtherRules, kReport},
        {-11, "INCOMPATIBLE_PADDING_MODE", "the key does not allow this padding mode",
         "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-12, "UNSUPPORTED_DIGEST", "unsupported digest", kOwnKey, kCaller},
        {-13, "INCOMPATIBLE_DIGEST", "the key does not allow this digest", kOwnKey, kCaller},
        {-14, "INVALID_EXPIRATION_TIME", "invalid expiration time"},
        {-15, "INVALID_USER_ID", "invalid user id"},
        {-16, "INVALID_AUTHORIZATION_TIMEOUT", "invalid authorization timeout"},
        {-17, "UNSUPPORTED_KEY_FORMAT", "unsupported key format"},
        {-18, "INCOMPATIBLE_KEY_FORMAT", "the key cannot have this format"},
        {-19, "UNSUPPORTED_KEY_ENCRYPTION_ALGORITHM", "unsupported algorithm to encrypt a key"},
        {-20, "UNSUPPORTED_KEY_VERIFICATION_ALGORITHM", "unsupported algorithm to verify a key"},
        {-21, "INVALID_INPUT_LENGTH", "invalid input length",
         "The keymaster does not accept an input of this length.",
         "Report it to the keymaster's vendor, with the size of the store."},
        {-22, "KEY_EXPORT_OPTIONS_INVALID", "invalid options of a key's export"},
        {-23, "DELEGATION_NOT_ALLOWED", "delegation is not allowed"},
        {-24, "KEY_NOT_YET_VALID", "the key is not valid yet", kOwnKey,
         "Set the device's clock, or use another key."},
        {-25, "KEY_EXPIRED", "the key has expired", kOwnKey,
         "Set the device's clock, or use another key."},
        {-26, "KEY_USER_NOT_AUTHENTICATED", "the key needs its user's authentication", kOwnKey,
         "Authenticate the user first."},
        {-27, "OUTPUT_PARAMETER_NULL", "no room for an output"},
        {-28, "INVALID_OPERATION_HANDLE", "invalid operation handle",
         "The keymaster lost the operation between `begin` and `finish`: its service restarted, or "
         "others took all its operations.",
         "Try again."},
        {-29, "INSUFFICIENT_BUFFER_SPACE", "a buffer is too small"},
        {-30, "VERIFICATION_FAILED", "verification failed",
         "From a query: the store is damaged, or was encrypted with another key; the backup takes "
         "its place. From a password conversion: the inputs or the tag differ from those of the "
         "first conversion. "
         "From the validation of a chain: the chain is not valid.",
         "After a query, restart the process before the next change, and run `zelkm doctor` if it "
         "persists. For a chain, `zelkm verify-chain` tells what is wrong."},
        {-31, "TOO_MANY_OPERATIONS", "too many open operations",
         "Other clients hold the keymaster's operations. Or operations stayed open after errors or "
         "lost replies: the library never aborts one.",
         kTryAgain},
        {-32, "UNEXPECTED_NULL_POINTER", "null or empty argument, or no keymaster",
         "A null pointer or a length of 0 was passed, or the object was made without a keymaster.",
         kCaller},
        {-33, "INVALID_KEY_BLOB", "the keymaster does not accept the key blob",
         "`edbk` is damaged, from another keymaster, or from a newer system; the repair of the key "
         "follows.",
         "Stop the process and run `zelkm doctor`, which tells which of these applies."},
        {-34, "IMPORTED_KEY_NOT_ENCRYPTED", "the imported key is not encrypted"},
        {-35, "IMPORTED_KEY_DECRYPTION_FAILED", "the imported key cannot be decrypted"},
        {-36, "IMPORTED_KEY_NOT_SIGNED", "the imported key is not signed"},
        {-37, "IMPORTED_KEY_VERIFICATION_FAILED", "the imported key cannot be verified"},
        {-38, "INVALID_ARGUMENT", "bad argument",
         "A null or empty argument to the query path or a password conversion; or the keymaster "
         "cannot upgrade a key that is newer than the system.",
         kCaller},
        {-39, "UNSUPPORTED_TAG", "unsupported tag",
         "The keymaster does not know a parameter of a password conversion or of a signing "
         "request.",
         "Make sure that the keymaster has these extensions."},
        {-40, "INVALID_TAG", "missing or malformed parameter in the reply, or invalid tag",
         "The reply to a password conversion lacked the tag or the material; or the keymaster does "
         "not accept a parameter.",
         kReport},
        {-41, "MEMORY_ALLOCATION_FAILED", "out of memory",
         "The process or the keymaster had no memory.", "Free memory and try again."},
        {-44, "IMPORT_PARAMETER_MISMATCH", "the imported key does not match its parameters"},
        {-45, "SECURE_HW_ACCESS_DENIED", "access to the secure hardware was denied",
         "The process may not use the keymaster, usually because of the system's policy.",
         "Check the policy's denials in the log."},
        {-46, "OPERATION_CANCELLED", "the operation was cancelled"},
        {-47, "CONCURRENT_ACCESS_CONFLICT", "concurrent access",
         "Another process uses the secure hardware.", "Try again."},
        {-48, "SECURE_HW_BUSY", "the secure hardware is busy",
         "Another process uses the secure hardware.", "Try again."},
        {-49, "SECURE_HW_COMMUNICATION_FAILED", "the secure hardware does not respond",
         "The keymaster service is running, but the hardware behind it does not respond.",
         "Try again; if it persists, restart the device."},
        {-50, "UNSUPPORTED_EC_FIELD", "unsupported field of a curve"},
        {-51, "MISSING_NONCE", "no nonce", "The keymaster returned no nonce for an encryption.",
         kReport},
        {-52, "INVALID_NONCE", "invalid nonce", "The keymaster does not accept nonces of 12 bytes.",
         kReport},
        {-53, "MISSING_MAC_LENGTH", "length of the authentication tag is missing", kOtherRules,
         kReport},
        {-54, "KEY_RATE_LIMIT_EXCEEDED", "the key is used too often", kOwnKey, "Wait."},
        {-55, "CALLER_NONCE_PROHIBITED", "a nonce of the caller is not allowed", kOtherRules,
         kReport},
        {-56, "KEY_MAX_OPS_EXCEEDED", "the key was used too often since the device started",
         kOwnKey, "Restart the device, or use another key."},
        {-57, "INVALID_MAC_LENGTH", "invalid length of the authentication tag", kOtherRules,
         kReport},
        {-58, "MISSING_MIN_MAC_LENGTH", "minimum length of the authentication tag is missing",
         kOtherRules, kReport},
        {-59, "UNSUPPORTED_MIN_MAC_LENGTH", "unsupported minimum length of the authentication tag",
         kOtherRules, kReport},
        {-60, "UNSUPPORTED_KDF", "unsupported key derivation"},
        {-61, "UNSUPPORTED_EC_CURVE", "unsupported curve", kOwnKey, kCaller},
        {-62, "KEY_REQUIRES_UPGRADE", "the key requires an upgrade",
         "From `setLoadedDBKey`: the stored key was upgraded, which is not an error. From a query: "
         "the upgrade failed earlier, and the object keeps the old key.",
         "After a query, restart the process."},
        {-63, "ATTESTATION_CHALLENGE_MISSING", "attestation challenge is missing",
         "The keymaster took a signing request for an attestation: it does not know the request's "
         "tag.",
         "Make sure that the keymaster has the extension, or pass a challenge to an attestation."},
        {-64, "KEYMASTER_NOT_CONFIGURED", "keymaster not configured",
         "It has no keys of its own yet. The tool's software keymaster: its root key file cannot "
         "be "
         "used.",
         "Provision the device. For the software keymaster, check soft_keymaster_root.key."},
        {-65, "ATTESTATION_APPLICATION_ID_MISSING", "attestation application id is missing",
         "An attestation was requested without ATTESTATION_APPLICATION_ID.", kCaller},
        {-66, "CANNOT_ATTEST_IDS", "the device's ids cannot be attested",
         "The parameters of a signing request ask for ids that the keymaster does not have.",
         "Omit the ATTESTATION_ID tags."},
        {-67, "ROLLBACK_RESISTANCE_UNAVAILABLE", "rollback resistance is not available"},
        {-68, "HARDWARE_TYPE_UNAVAILABLE", "hardware of this type is not available"},
        {-69, "PROOF_OF_PRESENCE_REQUIRED", "a proof of the user's presence is required", kOwnKey,
         "Use another key."},
        {-70, "CONCURRENT_PROOF_OF_PRESENCE_REQUESTED",
         "another proof of the user's presence is being asked for", kOwnKey, "Try again."},
        {-71, "NO_USER_CONFIRMATION", "the user did not confirm", kOwnKey, "Ask the user again."},
        {-72, "DEVICE_LOCKED", "the device is locked", kOwnKey, "Unlock the device."},
        {-100, "UNIMPLEMENTED", "unsupported column type, or not implemented by the keymaster",
         "From the keymaster, a call that it does not have. The library's own use of the code, for "
         "a column that holds no bytes, cannot happen with the built-in schema.",
         kReport},
        {-101, "VERSION_MISMATCH", "version mismatch",
         "The parts of the keymaster are of different versions.", kReport},
        {-910, "ZELKM_UNKNOWN_COLUMN", "unknown column name",
         "An INSERT names a column that the store does not have.", "Correct the command."},
        {-911, "ZELKM_SYNTAX_ERROR", "error in the command, a column, a value or a condition",
         "The command breaks the engine's rules; or a value in it holds the byte 0x1f, begins with "
         "a comma, is empty, or holds \" AND \" in a condition.",
         "Correct the command or the value."},
        {-913, "ZELKM_MALFORMED_STORE", "store too short, or malformed row",
         "The store was cut, its header was changed (flag or row count), or a stored value holds a "
         "separator.",
         kDamaged},
        {-914, "ZELKM_STALE_TABLE_HANDLE", "stale table handle",
         "The engine's table was replaced meanwhile. Only direct users of the engine see it: the "
         "object loads its image again.",
         "Set the handle to 0 and query again with the stored blob."},
        {-915, "ZELKM_PAYLOAD_TOO_LONG", "payload length larger than the store",
         "The store was cut, or the length in its header was changed.", kDamaged},
        {-917, "ZELKM_NOTHING_DELETED", "no object matched, nothing deleted",
         "From the engine; `SodDelete` returns 0 instead.", "Nothing."},
        {-918, "ZELKM_SECURE_DB_DISABLED", "the secure object database is switched off",
         "The object was made with `enableSecureDb` false.", "Make it with true."},
        {-1000, "UNKNOWN_ERROR", "unknown error",
         "Any other failure: a file that could not be written, a keymaster call that did not get "
         "through, a keymaster that gave no reason.",
         "The message logged with it says which; look that up. The change may or may not have "
         "happened."},
    };
    return codes;
}

const ResultCode* findResultCode(int code) {
    const auto& codes = resultCodes();
    const auto found = std::find_if(codes.begin(), codes.end(),
                                    [code](const ResultCode& c) { return c.code == code; });
    return found != codes.end() ? &*found : nullptr;
}

const char* causeOf(const ResultCode& result) {
    return *result.cause != '\0' ? result.cause : "No call of the library is known to lead to it.";
}

const char* adviceOf(const ResultCode& result) {
    return *result.advice != '\0' ? result.advice : "Ask the keymaster's vendor.";
}

}  // namespace zelkm_tool
