// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The attestation extension's content: what a key is, in DER.

#pragma once

#include "common.h"
#include "params.h"

namespace soft_keymaster {

// A KeyDescription of version 3, all of whose statements are software enforced: the characteristics
// that it has a place for, and the identity of the application that asked.
Bytes encodeKeyDescription(const Params& characteristics, const hidl_vec<uint8_t>& challenge,
                           const hidl_vec<uint8_t>& application_id);

}  // namespace soft_keymaster
