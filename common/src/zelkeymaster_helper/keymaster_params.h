// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Parameter lists of the keymaster calls, and their conversion from the keymaster's C form to HIDL.
//
// A view is a hidl_vec that borrows its bytes; they must outlive the call. Views are used where the
// keymaster only reads. A function that allocates returns an empty vector, or false, when out of
// memory.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hardware/keymaster_defs.h>
#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>

namespace zelkm {

using HidlBytes = android::hardware::hidl_vec<uint8_t>;
using HidlParams = android::hardware::hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>;

// A view of `len` bytes. More than 2^32 - 1 bytes are fatal.
HidlBytes viewOf(const uint8_t* data, size_t len);

// Replaces `to` by a copy that it owns. False when out of memory: `to` is then unchanged.
[[nodiscard]] bool copyBytes(const uint8_t* from, size_t len, HidlBytes* to);

// Converts a parameter set. The blobs of the result borrow those of the set. A parameter of an
// invalid or unknown tag type keeps its tag, but gets no value. In that case the tag in the *input*
// becomes KM_TAG_INVALID.
HidlParams kmParamSet2Hidl(const keymaster_key_param_set_t& set);

// The parameters that generate the database key: AES-256, GCM mode, full tags.
HidlParams dbKeyParameters();

// The parameters that begin an encryption with the database key. With `nonce` (SDB_IV_LEN bytes,
// borrowed), those that begin a decryption.
HidlParams gcmBeginParameters(const uint8_t* nonce);

// The parameters of the first update: the associated data (borrowed).
HidlParams associatedDataParameters(const uint8_t* data, size_t len);

// A copy of `params` with one more parameter, of type BOOL, set to true. The blobs borrow those of
// `params`.
HidlParams withBoolParameter(const HidlParams& params, android::hardware::keymaster::V4_0::Tag tag);

// The first parameter with this tag, or null.
const android::hardware::keymaster::V4_0::KeyParameter* findParameter(
    const HidlParams& params, android::hardware::keymaster::V4_0::Tag tag);

}  // namespace zelkm
