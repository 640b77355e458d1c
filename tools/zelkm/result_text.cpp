// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes in words. See result_text.h.

#include "result_text.h"

#include <zelkeymaster_result.h>

#include "failure.h"

namespace zelkm_tool {
namespace {

struct Meaning {
    int code;
    const char* text;
};

// The library's codes first, then keymaster 4.0 error codes that pass through it.
constexpr Meaning kMeanings[] = {
    {ZELKM_OK, "success"},
    {ZELKM_UNSUPPORTED_PURPOSE, "unsupported purpose or password mode"},
    {ZELKM_VERIFICATION_FAILED, "verification failed"},
    {ZELKM_UNEXPECTED_NULL_POINTER, "null or empty argument, or no keymaster"},
    {ZELKM_INVALID_KEY_BLOB, "the keymaster does not accept the key blob"},
    {ZELKM_INVALID_ARGUMENT, "bad argument"},
    {ZELKM_INVALID_TAG, "missing or malformed parameter in the answer, or invalid tag"},
    {ZELKM_MEMORY_ALLOCATION_FAILED, "out of memory"},
    {ZELKM_MISSING_NONCE, "no nonce"},
    {ZELKM_KEY_REQUIRES_UPGRADE, "the key requires an upgrade"},
    {ZELKM_UNSUPPORTED_COLUMN_TYPE, "unsupported column type, or not implemented by the keymaster"},
    {ZELKM_UNKNOWN_COLUMN, "unknown column name"},
    {ZELKM_SYNTAX_ERROR, "error in the command, a column, a value or a condition"},
    {ZELKM_MALFORMED_STORE, "store too short, or malformed row"},
    {ZELKM_STALE_TABLE_HANDLE, "stale table handle"},
    {ZELKM_PAYLOAD_TOO_LONG, "payload length larger than the store"},
    {ZELKM_NOTHING_DELETED, "no object matched, nothing deleted"},
    {ZELKM_SECURE_DB_DISABLED, "the secure object database is switched off"},
    {ZELKM_UNKNOWN_ERROR, "unknown error"},
    {-3, "the key does not allow this purpose"},
    {-4, "unsupported algorithm"},
    {-6, "unsupported key size"},
    {-7, "unsupported block mode"},
    {-8, "the key does not allow this block mode"},
    {-9, "unsupported length of the authentication tag"},
    {-10, "unsupported padding mode"},
    {-11, "the key does not allow this padding mode"},
    {-12, "unsupported digest"},
    {-21, "invalid input length"},
    {-28, "invalid operation handle"},
    {-31, "too many open operations"},
    {-39, "unsupported tag"},
    {-52, "invalid nonce"},
    {-53, "length of the authentication tag is missing"},
    {-55, "a nonce of the caller is not allowed"},
    {-57, "invalid length of the authentication tag"},
    {-58, "minimum length of the authentication tag is missing"},
    {-61, "unsupported curve"},
    {-63, "attestation challenge is missing"},
    {-64, "keymaster not configured (its root key file cannot be used)"},
    {-65, "attestation application id is missing"},
    {-101, "version mismatch"},
};

}  // namespace

std::string resultText(int code) {
    for (const Meaning& meaning : kMeanings) {
        if (meaning.code == code) {
            return std::to_string(code) + " " + meaning.text;
        }
    }
    return std::to_string(code) + " error of the keymaster";
}

void check(int code, const std::string& what) {
    if (code != ZELKM_OK) {
        throw Refused(what + ": " + resultText(code));
    }
}

}  // namespace zelkm_tool
