// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The vendor's tags. They are of type BYTES, but the last one is a BOOL.

#pragma once

#include "soft_keymaster/keymaster_types.h"

namespace soft_keymaster {

constexpr Tag kTagPasswordIn1 = static_cast<Tag>(0x90000907);
constexpr Tag kTagPasswordIn2 = static_cast<Tag>(0x90000908);
constexpr Tag kTagPasswordIn3 = static_cast<Tag>(0x90000909);
constexpr Tag kTagPasswordIn4 = static_cast<Tag>(0x9000090A);
constexpr Tag kTagPasswordEncryptedKey = static_cast<Tag>(0x9000090B);
constexpr Tag kTagPasswordKey = static_cast<Tag>(0x9000090C);
constexpr Tag kTagPasswordTag = static_cast<Tag>(0x9000090D);
constexpr Tag kTagPasswordRot = static_cast<Tag>(0x9000090E);

constexpr Tag kTagGenerateCsr = static_cast<Tag>(0x70000899);

constexpr KeyPurpose kPurposePasswordEncrypt = static_cast<KeyPurpose>('e');
constexpr KeyPurpose kPurposePasswordDecrypt = static_cast<KeyPurpose>('f');

}  // namespace soft_keymaster
