// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The handle of later platforms: another class, whose interface extends that of 4.0. Sets hold
// references that count.

#pragma once

#include <android/hardware/keymaster/4.0/IKeymasterDevice.h>

#include <cstdint>
#include <vector>

namespace android {

template <typename T>
class sp {
  public:
    T* get() const { return object_; }
    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }

  private:
    T* object_ = nullptr;
};

namespace hardware {
namespace keymaster {
namespace V4_1 {

enum class ErrorCode : int32_t { OK = 0, UNIMPLEMENTED = -100 };

struct IKeymasterDevice : public V4_0::IKeymasterDevice {
    virtual Return<ErrorCode> deviceLocked(bool passwordOnly,
                                           const V4_0::VerificationToken& verificationToken) = 0;
    virtual Return<ErrorCode> earlyBootEnded() = 0;
};

namespace support {

class Keymaster : public IKeymasterDevice {
  public:
    using KeymasterSet = std::vector<sp<Keymaster>>;

    struct VersionResult {
        hidl_string keymasterName;
        hidl_string authorName;
        uint8_t majorVersion;
        uint8_t minorVersion;
        V4_0::SecurityLevel securityLevel;
        bool supportsEc;
    };

    Keymaster(const hidl_string& descriptor, const hidl_string& instanceName)
        : mDescriptor(descriptor), mInstanceName(instanceName) {}
    ~Keymaster() override = default;

    virtual const VersionResult& halVersion() const = 0;
    const hidl_string& descriptor() const { return mDescriptor; }
    const hidl_string& instanceName() const { return mInstanceName; }

    static KeymasterSet enumerateAvailableDevices();
    static void performHmacKeyAgreement(const KeymasterSet& keymasters);

  private:
    hidl_string mDescriptor;
    hidl_string mInstanceName;
};

}  // namespace support
}  // namespace V4_1
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
