// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion. It converts key material with a key derived from the device's root
// key and four input blobs, and converts it back.

#pragma once

#include "params.h"
#include "root_key.h"

namespace soft_keymaster {

// The out parameters of `begin` for one of the two vendor purposes. Throws INVALID_ARGUMENT when an
// input is missing or empty, or when a tag has not 16 bytes. Throws VERIFICATION_FAILED when
// material, tag or one of the four blobs differs from the first conversion.
std::vector<KeyParameter> convertPassword(const RootKey& root_key, KeyPurpose purpose,
                                          const Params& params);

}  // namespace soft_keymaster
