// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion: key material in, material under a key of the device and of four input
// blobs out, and back.

#pragma once

#include "params.h"
#include "root_key.h"
#include "vendor_tags.h"

namespace soft_keymaster {

// Answers `begin` for one of the two vendor purposes: the out parameters. INVALID_ARGUMENT when an
// input is missing or empty, or a tag is not of 16 bytes; VERIFICATION_FAILED when the material,
// its tag or one of the four blobs is not what the conversion out used.
Params convertPassword(const RootKey& root_key, KeyPurpose purpose, const Params& params);

}  // namespace soft_keymaster
