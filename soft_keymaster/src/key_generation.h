// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes keys.

#pragma once

#include <cstdint>

#include "common.h"
#include "key_blob.h"
#include "params.h"

namespace soft_keymaster {

// A new key for the caller's `params`. The key's characteristics are these parameters, except for
// client data, for tags without a known type and for versions. The keymaster adds its own: origin,
// creation time, OS version and patch level, and for an EC key size and curve. With `imported`, the
// key is not new: these are the bytes of an AES key.
Key makeKey(const Params& params, uint32_t patch_level, const hidl_vec<uint8_t>* imported);

// A fresh key pair on P-256.
PkeyPtr makeEcKeyPair();

// The private key of an EC or RSA key. Throws INCOMPATIBLE_ALGORITHM for any other key.
PkeyPtr privateKey(const Key& key);

}  // namespace soft_keymaster
