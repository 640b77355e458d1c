// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion of the secure hardware: what goes into its one keymaster call and what is
// taken out of the answer. See encryptWithPasswordHWKey().

#pragma once

#include "keymaster_params.h"
#include "zelkeymaster_result.h"
#include "zelkeymaster_vendor_tags.h"

namespace zelkm {

inline constexpr size_t kPasswordTagLen = 16;
inline constexpr size_t kRotLen = 16;

struct PasswordInputs {
    const HidlBytes& in_1;
    const HidlBytes& in_2;
    const HidlBytes& material;
    const HidlBytes& in_3;
    const HidlBytes& in_4;
};

// The call's parameters, with copies of all bytes, which are wiped at the end. `tag` is sent in the
// direction to the encrypted key only. The list is empty when there was no memory.
class PasswordParameters {
  public:
    PasswordParameters(PW_ENCRYPT_TYPE type, const PasswordInputs& inputs, const HidlBytes& tag);
    ~PasswordParameters() { wipe(); }
    PasswordParameters(const PasswordParameters&) = delete;
    PasswordParameters& operator=(const PasswordParameters&) = delete;

    const HidlParams& list() const { return list_; }

  private:
    void wipe();

    HidlParams list_;
};

// Receives the answer into the caller's vectors (borrowed).
struct PasswordAnswer {
    enum Defect { kNone, kTag, kKey, kEncryptedKey };

    PW_ENCRYPT_TYPE type;
    HidlBytes& material;
    HidlBytes& tag;
    HidlBytes& rot;

    int32_t result = ZELKM_UNKNOWN_ERROR;
    bool rot_missing = false;  // 16 zero bytes took its place
    Defect defect = kNone;     // the parameter that made `result` -40

    void take(android::hardware::keymaster::V4_0::ErrorCode error, const HidlParams& out_params);
};

}  // namespace zelkm
