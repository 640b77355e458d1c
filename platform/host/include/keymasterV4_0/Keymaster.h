// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the platform's handle to a keymaster. It leaves the members of the interface
// pure virtual. The software keymaster defines the two static functions: a program that calls them
// must link it.

#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace android {
namespace hardware {
namespace keymaster {
namespace V4_0 {
namespace support {

class Keymaster : public IKeymasterDevice {
  public:
    using KeymasterSet = std::vector<std::unique_ptr<Keymaster>>;

    struct VersionResult {
        hidl_string keymasterName;
        hidl_string authorName;
        uint8_t majorVersion;
        SecurityLevel securityLevel;
        bool supportsEc;
    };

    Keymaster(const hidl_string& descriptor, const hidl_string& instanceName)
        : mDescriptor(descriptor), mInstanceName(instanceName) {}
    ~Keymaster() override = default;

    virtual const VersionResult& halVersion() const = 0;
    const hidl_string& descriptor() const { return mDescriptor; }
    const hidl_string& instanceName() const { return mInstanceName; }

    // All keymasters of the device, the most secure first.
    static KeymasterSet enumerateAvailableDevices();
    // Makes the keymasters agree on the key that authenticates their tokens. To be called once
    // after each start of the system.
    static void performHmacKeyAgreement(const KeymasterSet& keymasters);

  private:
    hidl_string mDescriptor;
    hidl_string mInstanceName;
};

}  // namespace support
}  // namespace V4_0
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
