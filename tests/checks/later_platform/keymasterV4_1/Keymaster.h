// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The handle of later platforms as far as the library can see it: another class, whose interface
// extends that of 4.0.

#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>

namespace android {
namespace hardware {
namespace keymaster {
namespace V4_1 {

struct IKeymasterDevice : public V4_0::IKeymasterDevice {};

namespace support {

class Keymaster : public IKeymasterDevice {};

}  // namespace support
}  // namespace V4_1
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
