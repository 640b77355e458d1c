// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion of the secure hardware: the lengths of its values, and the parameters of
// its one keymaster call. See encryptWithPasswordHWKey().

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

// The call's parameters. They hold copies of all bytes, which the destructor wipes. `tag` is sent
// only in the direction to the encrypted key. The list is empty when there was no memory.
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

}  // namespace zelkm
