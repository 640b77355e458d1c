// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster that does what cannot be avoided and no more: one AES-256-GCM pass with a context
// that is set up once. What an operation takes beyond that is the library's own. So it is no
// FaultKeymaster, which copies each call.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "reference.h"

namespace bench {

using soft_keymaster::HardwareAuthToken;
using soft_keymaster::hidl_vec;
using soft_keymaster::KeyParameter;
using soft_keymaster::KeyPurpose;
using soft_keymaster::Return;
using soft_keymaster::VerificationToken;

// Generates keys, and then encrypts with one of its own. One operation at a time; arguments are not
// checked.
class BareKeymaster : public soft_keymaster::SoftKeymaster {
  public:
    // `max_update_bytes` is what one update takes at most, 0 for all. The root key of the generated
    // keys lies in the working directory.
    explicit BareKeymaster(size_t max_update_bytes);

    Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                       const hidl_vec<KeyParameter>& in_params, const HardwareAuthToken& auth_token,
                       begin_cb cb) override;
    Return<void> update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, update_cb cb) override;
    Return<void> finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                        const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, finish_cb cb) override;

  private:
    Cipher cipher_;
    const size_t max_update_bytes_;
    bool decrypting_ = false;
    std::vector<uint8_t> held_;    // decryption: what may be the tag
    std::vector<uint8_t> output_;  // of one update
};

}  // namespace bench
