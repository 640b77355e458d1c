// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "result_codes.h"

#include <keymaster_check/names.h>

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
constexpr char kStoreDamaged[] =
    "The library restores nothing. Stop the process and see \"A damaged store\" in "
    "docs/diagnostics.md.";

}  // namespace

const std::vector<ResultCode>& resultCodes() {
    static const auto& codes = *new std::vector<ResultCode>{
        {0, "success", "The call did what it should.", "Nothing."},
        {-1, "the root of trust is set already"},
        {-2, "unsupported purpose or password mode",
         "A password conversion of a type that is neither 0 nor 1, or a keymaster without password "
         "conversion (purposes 101 and 102).",
         "Correct the type, or make sure that the keymaster has the extension."},
        {-3, "the key does not allow this purpose", "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-4, "unsupported algorithm", kOtherRules, kReport},
        {-5, "the key's algorithm does not allow this",
         "A signing request for a key that cannot sign.", "Pass an RSA or EC key."},
        {-6, "unsupported key size", kOtherRules, kReport},
        {-7, "unsupported block mode", kOtherRules, kReport},
        {-8, "the key does not allow this block mode", "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-9, "unsupported length of the authentication tag", kOtherRules, kReport},
        {-10, "unsupported padding mode", kOtherRules, kReport},
        {-11, "the key does not allow this padding mode", "`edbk` is not the database's key.",
         "Compare `edbk` and `edbk_digest` with `zelkm info`."},
        {-12, "unsupported digest", kOwnKey, kCaller},
        {-13, "the key does not allow this digest", kOwnKey, kCaller},
        {-14, "invalid expiration time"},
        {-15, "invalid user id"},
        {-16, "invalid authorization timeout"},
        {-17, "unsupported key format"},
        {-18, "the key cannot have this format"},
        {-19, "unsupported algorithm to encrypt a key"},
        {-20, "unsupported algorithm to verify a key"},
        {-21, "invalid input length", "The keymaster does not accept an input of this length.",
         "Report it to the keymaster's vendor, with the size of the store."},
        {-22, "invalid options of a key's export"},
        {-23, "delegation is not allowed"},
        {-24, "the key is not valid yet", kOwnKey, "Set the device's clock, or use another key."},
        {-25, "the key has expired", kOwnKey, "Set the device's clock, or use another key."},
        {-26, "the key needs its user's authentication", kOwnKey, "Authenticate the user first."},
        {-27, "no room for an output"},
        {-28, "invalid operation handle",
         "The keymaster lost the operation between `begin` and `finish`: its service restarted, or "
         "others took all its operations.",
         "Try again."},
        {-29, "a buffer is too small"},
        {-30, "verification failed",
         "From a query: the store is damaged, or was encrypted with another key; the backup takes "
         "its place. From a password conversion: the inputs or the tag differ from those of the "
         "first conversion. "
         "From the validation of a chain: the chain is not valid.",
         "After a query, restart the process before the next change, and run `zelkm doctor` if it "
         "persists. For a chain, `zelkm verify-chain` tells what is wrong."},
        {-31, "too many open operations",
         "Other clients hold the keymaster's operations. Or operations stayed open after errors or "
         "lost replies: the library never aborts one.",
         kTryAgain},
        {-32, "null or empty argument, or no keymaster",
         "A null pointer or a length of 0 was passed, or the object was made without a keymaster.",
         kCaller},
        {-33, "the keymaster does not accept the key blob",
         "`edbk` is damaged, from another keymaster, or from a newer system; the repair of the key "
         "follows.",
         "Stop the process and run `zelkm doctor`, which tells which of these applies."},
        {-34, "the imported key is not encrypted"},
        {-35, "the imported key cannot be decrypted"},
        {-36, "the imported key is not signed"},
        {-37, "the imported key cannot be verified"},
        {-38, "bad argument",
         "A null or empty argument to the query path or a password conversion; or the keymaster "
         "cannot upgrade a key that is newer than the system.",
         kCaller},
        {-39, "unsupported tag",
         "The keymaster does not know a parameter of a password conversion or of a signing "
         "request.",
         "Make sure that the keymaster has these extensions."},
        {-40, "missing or malformed parameter in the reply, or invalid tag",
         "The reply to a password conversion lacked the tag or the material; or the keymaster does "
         "not accept a parameter.",
         kReport},
        {-41, "out of memory", "The process or the keymaster had no memory.",
         "Free memory and try again."},
        {-44, "the imported key does not match its parameters"},
        {-45, "access to the secure hardware was denied",
         "The process may not use the keymaster, usually because of the system's policy.",
         "Check the policy's denials in the log."},
        {-46, "the operation was cancelled"},
        {-47, "concurrent access", "Another process uses the secure hardware.", "Try again."},
        {-48, "the secure hardware is busy", "Another process uses the secure hardware.",
         "Try again."},
        {-49, "the secure hardware does not respond",
         "The keymaster service is running, but the hardware behind it does not respond.",
         "Try again; if it persists, restart the device."},
        {-50, "unsupported field of a curve"},
        {-51, "no nonce", "The keymaster returned no nonce for an encryption.", kReport},
        {-52, "invalid nonce", "The keymaster does not accept nonces of 12 bytes.", kReport},
        {-53, "length of the authentication tag is missing", kOtherRules, kReport},
        {-54, "the key is used too often", kOwnKey, "Wait."},
        {-55, "a nonce of the caller is not allowed", kOtherRules, kReport},
        {-56, "the key was used too often since the device started", kOwnKey,
         "Restart the device, or use another key."},
        {-57, "invalid length of the authentication tag", kOtherRules, kReport},
        {-58, "minimum length of the authentication tag is missing", kOtherRules, kReport},
        {-59, "unsupported minimum length of the authentication tag", kOtherRules, kReport},
        {-60, "unsupported key derivation"},
        {-61, "unsupported curve", kOwnKey, kCaller},
        {-62, "the key requires an upgrade",
         "From `setLoadedDBKey`: the stored key was upgraded, which is not an error. From a query: "
         "the upgrade failed earlier, and the object keeps the old key.",
         "After a query, restart the process."},
        {-63, "attestation challenge is missing",
         "The keymaster took a signing request for an attestation: it does not know the request's "
         "tag.",
         "Make sure that the keymaster has the extension, or pass a challenge to an attestation."},
        {-64, "keymaster not configured",
         "It has no keys of its own yet. The tool's software keymaster: its root key file cannot "
         "be "
         "used.",
         "Provision the device. For the software keymaster, check soft_keymaster_root.key."},
        {-65, "attestation application id is missing",
         "An attestation was requested without ATTESTATION_APPLICATION_ID.", kCaller},
        {-66, "the device's ids cannot be attested",
         "The parameters of a signing request ask for ids that the keymaster does not have.",
         "Omit the ATTESTATION_ID tags."},
        {-67, "rollback resistance is not available"},
        {-68, "hardware of this type is not available"},
        {-69, "a proof of the user's presence is required", kOwnKey, "Use another key."},
        {-70, "another proof of the user's presence is being asked for", kOwnKey, "Try again."},
        {-71, "the user did not confirm", kOwnKey, "Ask the user again."},
        {-72, "the device is locked", kOwnKey, "Unlock the device."},
        {-100, "unsupported column type, or not implemented by the keymaster",
         "From the keymaster, a call that it does not have. The library's own use of the code, for "
         "a column that holds no bytes, cannot happen with the built-in schema.",
         kReport},
        {-101, "version mismatch", "The parts of the keymaster are of different versions.",
         kReport},
        {-910, "unknown column name", "An INSERT names a column that the store does not have.",
         "Correct the command."},
        {-911, "error in the command, a column, a value or a condition",
         "The command breaks the engine's rules; or a value in it holds the byte 0x1f, begins with "
         "a comma, is empty, or holds \" AND \" in a condition.",
         "Correct the command or the value."},
        {-913, "store too short, or malformed row",
         "The store was cut, its header was changed (flag or row count), or a stored value holds a "
         "separator.",
         kStoreDamaged},
        {-914, "stale table handle",
         "The engine's table was replaced meanwhile. Only direct users of the engine see it: the "
         "object loads its image again.",
         "Set the handle to 0 and query again with the stored blob."},
        {-915, "payload length larger than the store",
         "The store was cut, or the length in its header was changed.", kStoreDamaged},
        {-917, "no object matched, nothing deleted",
         "From the engine; `SodDelete` returns 0 instead.", "Nothing."},
        {-918, "the secure object database is switched off",
         "The object was made with `enableSecureDb` false.", "Make it with true."},
        {-1000, "unknown error",
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

const char* ResultCode::name() const {
    return keymaster_check::codeName(code);
}

const char* causeOf(const ResultCode& result) {
    return *result.cause != '\0' ? result.cause : "No call of the library is known to lead to it.";
}

const char* adviceOf(const ResultCode& result) {
    return *result.advice != '\0' ? result.advice : "Ask the keymaster's vendor.";
}

}  // namespace zelkm_tool
