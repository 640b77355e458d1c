// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Encodes the content of the attestation extension: a description of the key, in DER.

#pragma once

#include "common.h"
#include "params.h"

namespace soft_keymaster {

// A KeyDescription of version 3. It holds the characteristics that it has members for, all as
// software enforced, and the identity of the application that asked.
Bytes encodeKeyDescription(const Params& characteristics, const hidl_vec<uint8_t>& challenge,
                           const hidl_vec<uint8_t>& application_id);

}  // namespace soft_keymaster
