// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Host stand-in for the keymaster 4.0 interface. Every callback runs before its call returns.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <cstdint>
#include <functional>

namespace android {
namespace hardware {
namespace keymaster {
namespace V4_0 {

struct IKeymasterDevice {
    using getHardwareInfo_cb =
        std::function<void(SecurityLevel securityLevel, const hidl_string& keymasterName,
                           const hidl_string& keymasterAuthorName)>;
    using getHmacSharingParameters_cb =
        std::function<void(ErrorCode error, const HmacSharingParameters& params)>;
    using computeSharedHmac_cb =
        std::function<void(ErrorCode error, const hidl_vec<uint8_t>& sharingCheck)>;
    using verifyAuthorization_cb =
        std::function<void(ErrorCode error, const VerificationToken& token)>;
    using generateKey_cb = std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                                              const KeyCharacteristics& keyCharacteristics)>;
    using importKey_cb = std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                                            const KeyCharacteristics& keyCharacteristics)>;
    using importWrappedKey_cb =
        std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyBlob,
                           const KeyCharacteristics& keyCharacteristics)>;
    using getKeyCharacteristics_cb =
        std::function<void(ErrorCode error, const KeyCharacteristics& keyCharacteristics)>;
    using exportKey_cb = std::function<void(ErrorCode error, const hidl_vec<uint8_t>& keyMaterial)>;
    using attestKey_cb =
        std::function<void(ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& certChain)>;
    using upgradeKey_cb =
        std::function<void(ErrorCode error, const hidl_vec<uint8_t>& upgradedKeyBlob)>;
    using begin_cb = std::function<void(ErrorCode error, const hidl_vec<KeyParameter>& outParams,
                                        uint64_t operationHandle)>;
    using update_cb = std::function<void(ErrorCode error, uint32_t inputConsumed,
                                         const hidl_vec<KeyParameter>& outParams,
                                         const hidl_vec<uint8_t>& output)>;
    using finish_cb = std::function<void(ErrorCode error, const hidl_vec<KeyParameter>& outParams,
                                         const hidl_vec<uint8_t>& output)>;

    virtual ~IKeymasterDevice() = default;

    virtual Return<void> getHardwareInfo(getHardwareInfo_cb _hidl_cb) = 0;
    virtual Return<void> getHmacSharingParameters(getHmacSharingParameters_cb _hidl_cb) = 0;
    virtual Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                           computeSharedHmac_cb _hidl_cb) = 0;
    virtual Return<void> verifyAuthorization(uint64_t operationHandle,
                                             const hidl_vec<KeyParameter>& parametersToVerify,
                                             const HardwareAuthToken& authToken,
                                             verifyAuthorization_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) = 0;
    virtual Return<void> generateKey(const hidl_vec<KeyParameter>& keyParams,
                                     generateKey_cb _hidl_cb) = 0;
    virtual Return<void> importKey(const hidl_vec<KeyParameter>& keyParams, KeyFormat keyFormat,
                                   const hidl_vec<uint8_t>& keyData, importKey_cb _hidl_cb) = 0;
    virtual Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrappedKeyData,
                                          const hidl_vec<uint8_t>& wrappingKeyBlob,
                                          const hidl_vec<uint8_t>& maskingKey,
                                          const hidl_vec<KeyParameter>& unwrappingParams,
                                          uint64_t passwordSid, uint64_t biometricSid,
                                          importWrappedKey_cb _hidl_cb) = 0;
    virtual Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& keyBlob,
                                               const hidl_vec<uint8_t>& clientId,
                                               const hidl_vec<uint8_t>& appData,
                                               getKeyCharacteristics_cb _hidl_cb) = 0;
    virtual Return<void> exportKey(KeyFormat keyFormat, const hidl_vec<uint8_t>& keyBlob,
                                   const hidl_vec<uint8_t>& clientId,
                                   const hidl_vec<uint8_t>& appData, exportKey_cb _hidl_cb) = 0;
    virtual Return<void> attestKey(const hidl_vec<uint8_t>& keyToAttest,
                                   const hidl_vec<KeyParameter>& attestParams,
                                   attestKey_cb _hidl_cb) = 0;
    virtual Return<void> upgradeKey(const hidl_vec<uint8_t>& keyBlobToUpgrade,
                                    const hidl_vec<KeyParameter>& upgradeParams,
                                    upgradeKey_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& keyBlob) = 0;
    virtual Return<ErrorCode> deleteAllKeys() = 0;
    virtual Return<ErrorCode> destroyAttestationIds() = 0;
    virtual Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& keyBlob,
                               const hidl_vec<KeyParameter>& inParams,
                               const HardwareAuthToken& authToken, begin_cb _hidl_cb) = 0;
    virtual Return<void> update(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input, const HardwareAuthToken& authToken,
                                const VerificationToken& verificationToken, update_cb _hidl_cb) = 0;
    virtual Return<void> finish(uint64_t operationHandle, const hidl_vec<KeyParameter>& inParams,
                                const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                                const HardwareAuthToken& authToken,
                                const VerificationToken& verificationToken, finish_cb _hidl_cb) = 0;
    virtual Return<ErrorCode> abort(uint64_t operationHandle) = 0;
};

}  // namespace V4_0
}  // namespace keymaster
}  // namespace hardware
}  // namespace android
