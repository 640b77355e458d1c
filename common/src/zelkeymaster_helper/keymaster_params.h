// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Parameter lists of the keymaster calls, and their conversion from the keymaster's C form to HIDL.
//
// Views (hidl_vec that borrow) are used wherever the keymaster only reads: the bytes must outlive
// the call. Functions that allocate answer an empty vector, or false, when out of memory.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hardware/keymaster_defs.h>
#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>

namespace zelkm {

using HidlBytes = android::hardware::hidl_vec<uint8_t>;
using HidlParams = android::hardware::hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>;

// A vector that borrows `len` bytes. More than 2^32 - 1 bytes are fatal.
HidlBytes viewOf(const uint8_t* data, size_t len);

// Replaces `to` by an owned copy. False when out of memory; `to` is then as before.
[[nodiscard]] bool copyBytes(const uint8_t* from, size_t len, HidlBytes* to);

// Converts a parameter set; blobs of the result borrow those of the set. A parameter of an invalid
// or unknown tag type keeps its tag and gets no value, and its tag in the *input* becomes
// KM_TAG_INVALID.
HidlParams kmParamSet2Hidl(const keymaster_key_param_set_t& set);

// What the database key is generated with: AES-256 in GCM mode with whole tags.
HidlParams dbKeyParameters();

// What an encryption with the database key begins with; a decryption when `nonce` (SDB_IV_LEN
// bytes, borrowed) is given.
HidlParams gcmBeginParameters(const uint8_t* nonce);

// The associated data (borrowed), for the first update.
HidlParams associatedDataParameters(const uint8_t* data, size_t len);

// A copy of `params` with a parameter of type BOOL, set to true, at its end; blobs borrow those of
// `params`.
HidlParams withBoolParameter(const HidlParams& params, android::hardware::keymaster::V4_0::Tag tag);

// The first parameter with this tag, or null.
const android::hardware::keymaster::V4_0::KeyParameter* findParameter(
    const HidlParams& params, android::hardware::keymaster::V4_0::Tag tag);

}  // namespace zelkm
