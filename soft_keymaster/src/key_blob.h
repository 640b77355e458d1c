// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Keys, and the blobs in which they leave the keymaster.
//
// A blob, integers with the most significant byte first:
//
//     offset  size
//          0     4  "SKM" and the format's version, 1
//          4    12  nonce
//         16     4  n, the length of the characteristics
//         20     n  the characteristics (see encodeParams())
//     20 + n     m  the key material, AES-256-GCM with a key derived from the root key
// 20 + n + m    16  tag, over all that stands before it, and over the client data

#pragma once

#include <cstdint>

#include "common.h"
#include "params.h"
#include "root_key.h"

namespace soft_keymaster {

struct Key {
    Params characteristics;
    Bytes material;  // AES: the key itself; EC and RSA: the private key in DER
};

// The data that binds a key to its client, from APPLICATION_ID and APPLICATION_DATA. It is in no
// blob. An empty value counts as absent.
Bytes clientDataOf(const hidl_vec<uint8_t>& application_id,
                   const hidl_vec<uint8_t>& application_data);
Bytes clientDataOf(const Params& params);

Bytes wrapKey(const RootKey& root_key, const Key& key, const Bytes& client_data);
// Throws INVALID_KEY_BLOB for anything that wrapKey() did not make with this root key for this
// client.
Key unwrapKey(const RootKey& root_key, const hidl_vec<uint8_t>& blob, const Bytes& client_data);

}  // namespace soft_keymaster
