// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the device's service uses of HIDL, and the host's stand-in lacks: the handle of a keymaster
// in another process, and the notice of its death. For compiling alone.

#pragma once

#include <utils/RefBase.h>
#define DEAD_OBJECT HOST_DEAD_OBJECT  // utils/Errors.h has it
#include <hidl/Status.h>
#undef DEAD_OBJECT

#include <string>

namespace android::hidl::base::V1_0 {
struct IBase : virtual RefBase {};
}  // namespace android::hidl::base::V1_0

namespace android::hardware {
struct hidl_death_recipient : virtual RefBase {
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};
}  // namespace android::hardware

#define IKeymasterDevice IKeymasterCalls
#include_next <android/hardware/keymaster/4.0/IKeymasterDevice.h>
#undef IKeymasterDevice

namespace android::hardware::keymaster::V4_0 {
struct IKeymasterDevice : IKeymasterCalls, hidl::base::V1_0::IBase {
    static sp<IKeymasterDevice> getService(const std::string& name);
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie);
};
}  // namespace android::hardware::keymaster::V4_0
