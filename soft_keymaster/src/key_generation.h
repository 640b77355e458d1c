// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Making keys.

#pragma once

#include <cstdint>

#include "common.h"
#include "key_blob.h"
#include "params.h"

namespace soft_keymaster {

// A new key for the caller's `params`. Its characteristics are these, except for what binds the key
// to its client, for tags without a known type and for the versions, which are the keymaster's own
// to say; and what a keymaster adds: origin, creation time, OS version and patch level, the size
// and the curve of an EC key.
Key generateKey(const Params& params, uint32_t patch_level);

// A fresh key pair on P-256.
PkeyPtr makeEcKeyPair();

// The private key of an EC or RSA key; INCOMPATIBLE_ALGORITHM for any other.
PkeyPtr privateKey(const Key& key);

}  // namespace soft_keymaster
