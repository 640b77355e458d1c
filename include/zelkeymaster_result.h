// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes of the library, usable from C and C++.
//
// Every function that can fail returns a signed 32-bit code: 0 for success, otherwise a negative
// number. The codes are those of keymaster 4.0 (`ErrorCode` in C++, `keymaster_error_t` in C), and
// the library's own from -910 to -918. A keymaster error code that is not listed here is passed on
// unchanged.

#pragma once

// clang-format off
enum zelkm_result {
    ZELKM_OK                          =     0,
    ZELKM_UNSUPPORTED_PURPOSE         =    -2,  // unsupported password-encryption mode
    ZELKM_VERIFICATION_FAILED         =   -30,  // GCM tag mismatch; attestation chain refused
    ZELKM_UNEXPECTED_NULL_POINTER     =   -32,  // null or empty argument; no keymaster handle
    ZELKM_INVALID_KEY_BLOB            =   -33,  // the keymaster does not accept the key blob
    ZELKM_INVALID_ARGUMENT            =   -38,  // bad arguments to the engine or the query path
    ZELKM_INVALID_TAG                 =   -40,  // a missing or malformed returned parameter
    ZELKM_MEMORY_ALLOCATION_FAILED    =   -41,
    ZELKM_MISSING_NONCE               =   -51,  // the keymaster returned no nonce for an encryption
    ZELKM_KEY_REQUIRES_UPGRADE        =   -62,  // from setLoadedDBKey: the stored key was upgraded
    ZELKM_UNSUPPORTED_COLUMN_TYPE     =  -100,
    ZELKM_UNKNOWN_COLUMN              =  -910,
    ZELKM_SYNTAX_ERROR                =  -911,  // command, column, value or condition
    ZELKM_MALFORMED_STORE             =  -913,  // store blob too short, or a malformed row
    ZELKM_STALE_TABLE_HANDLE          =  -914,
    ZELKM_PAYLOAD_TOO_LONG            =  -915,  // payload length larger than the blob
    ZELKM_NOTHING_DELETED             =  -917,
    ZELKM_SECURE_DB_DISABLED          =  -918,  // the object was built without the secure database
    ZELKM_UNKNOWN_ERROR               = -1000   // any other failure, transport failures included
};
// clang-format on
