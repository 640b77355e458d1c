// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// For platform trees from Android 11 on. There the handle to a keymaster has another name and path:
// this header gives it those that the library uses. Its interface extends that of 4.0, so nothing
// else changes but the constructor's mangled name.

#pragma once

#include <keymasterV4_1/Keymaster.h>

namespace android {
namespace hardware {
namespace keymaster {
namespace V4_0 {
namespace support {

using Keymaster = ::android::hardware::keymaster::V4_1::support::Keymaster;

}  // namespace support
}  // namespace V4_0
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
