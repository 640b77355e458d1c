// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Tags and purposes that the secure hardware's vendor adds to keymaster 4.0. A keymaster without
// the purposes refuses them, with an error code of its own. A keymaster without a tag does not
// refuse it: it ignores tags that it does not know.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>

#include <cstdint>

// The two directions of encryptWithPasswordHWKey(). The enumeration has a fixed underlying type, so
// that any other number from a caller can be refused.
enum PW_ENCRYPT_TYPE : int32_t {
    PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY = 0,  // takes a key and its tag, returns the encrypted key
    PW_ENCRYPT_TYPE_TO_KEY = 1,            // takes an encrypted key, returns the key and its tag
};

// Purposes of `begin` for the two directions.
inline constexpr auto PWHW_PURPOSE_TO_KEY =
    static_cast<android::hardware::keymaster::V4_0::KeyPurpose>(101);  // 'e'
inline constexpr auto PWHW_PURPOSE_TO_ENCRYPTED_KEY =
    static_cast<android::hardware::keymaster::V4_0::KeyPurpose>(102);  // 'f'

// Byte strings of the password conversion.
inline constexpr auto PWHW_TAG_IN_1 =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x90000907);
inline constexpr auto PWHW_TAG_IN_2 =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x90000908);
inline constexpr auto PWHW_TAG_IN_3 =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x90000909);
inline constexpr auto PWHW_TAG_IN_4 =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x9000090A);
inline constexpr auto PWHW_TAG_ENCRYPTED_KEY =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x9000090B);
inline constexpr auto PWHW_TAG_KEY =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x9000090C);
inline constexpr auto PWHW_TAG_TAG =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x9000090D);  // 16 bytes
inline constexpr auto PWHW_TAG_ROT =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x9000090E);  // 16 bytes

// A boolean that turns an attestation into a certificate signing request. A keymaster that does not
// know it attests as always. generateCSR() then returns -63 when the parameters hold no challenge,
// and otherwise 0 with the request left as it was.
inline constexpr auto TAG_GENERATE_CSR =
    static_cast<android::hardware::keymaster::V4_0::Tag>(0x70000899);
