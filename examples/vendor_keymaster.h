// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The smallest keymaster that carries a store, for those who write a keymaster for the first time.
// Its cryptography is libcrypto's. In a real keymaster the parts marked "hardware" run in the
// secure world, and this class only passes their results on.
//
// A HAL implements IKeymasterDevice, and is registered as a service. The platform hands it to
// programs wrapped in the class Keymaster. This example derives from that class, so that it can be
// tried within one process.
//
// How calls work
//  - The answer goes to the callback: once, on the caller's thread, before the call returns. A
//    refusal is an answer, too: the callback gets an error code and empty values, and the call
//    returns Void(). The return value speaks of the transport only.
//  - The arguments are borrowed: they are gone when the call has returned.
//  - A key never leaves the hardware in the clear. generateKey() returns a blob: the key, sealed
//    under a key that the device keeps for itself. The caller stores the blob, and passes it in
//    again. So the keymaster stores nothing for a key.
//  - An operation is begun, fed and finished, by its handle. It ends with finish(), abort() or any
//    error. The library never calls abort(). So an operation that it leaves open must end in some
//    other way, or the table of operations runs full.

#pragma once

#include <keymasterV4_0/Keymaster.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>

namespace example {

using android::hardware::hidl_vec;
using android::hardware::Return;
using namespace android::hardware::keymaster::V4_0;

class VendorKeymaster : public support::Keymaster {
  public:
    using DeviceKey = std::array<uint8_t, 32>;

    // Hardware: the device key differs from device to device, never changes, and cannot be read
    // out.
    explicit VendorKeymaster(const DeviceKey& device_key);
    ~VendorKeymaster() override;

    const VersionResult& halVersion() const override { return version_; }

    // ---- What the store needs -------------------------------------------------------------------

    // Makes the one kind of key that this keymaster has: AES-256-GCM with tags of 128 bits.
    Return<void> generateKey(const hidl_vec<KeyParameter>& key_params, generateKey_cb cb) override;
    // Says whether a blob is whole and of this device. The library asks at every start. Only the
    // error INVALID_KEY_BLOB makes it look for a better copy of the blob.
    Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data,
                                       getKeyCharacteristics_cb cb) override;
    // When encrypting, the keymaster chooses the nonce: 12 random bytes, never the same twice.
    Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                       const hidl_vec<KeyParameter>& in_params, const HardwareAuthToken& auth_token,
                       begin_cb cb) override;
    // Puts out one byte for each byte of payload, at once. The library stores only what it has got
    // when the last update has returned.
    Return<void> update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, update_cb cb) override;
    // When encrypting, puts out the 16 bytes of the tag. When decrypting, puts out nothing, and
    // returns VERIFICATION_FAILED unless the last 16 bytes of the input were the right tag.
    Return<void> finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                        const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, finish_cb cb) override;

    // ---- What a good neighbour has --------------------------------------------------------------

    Return<void> getHardwareInfo(getHardwareInfo_cb cb) override;
    Return<ErrorCode> abort(uint64_t handle) override;
    // The keymaster stores nothing for a key, so there is nothing to delete.
    Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& key_blob) override;

    // ---- What may return UNIMPLEMENTED ----------------------------------------------------------
    // upgradeKey: needed when blobs carry the system's patch level, as they should. The library
    //     calls it after KEY_REQUIRES_UPGRADE, which this keymaster never returns.
    // attestKey: needed for attestation and, with the vendor's tag, for signing requests.
    // The library calls none of the others.

    Return<void> upgradeKey(const hidl_vec<uint8_t>& key_blob,
                            const hidl_vec<KeyParameter>& upgrade_params,
                            upgradeKey_cb cb) override;
    Return<void> attestKey(const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<KeyParameter>& attest_params, attestKey_cb cb) override;
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb cb) override;
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                   computeSharedHmac_cb cb) override;
    Return<void> verifyAuthorization(uint64_t handle, const hidl_vec<KeyParameter>& params,
                                     const HardwareAuthToken& auth_token,
                                     verifyAuthorization_cb cb) override;
    Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) override;
    Return<void> importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                           const hidl_vec<uint8_t>& key_data, importKey_cb cb) override;
    Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrapped_key_data,
                                  const hidl_vec<uint8_t>& wrapping_key_blob,
                                  const hidl_vec<uint8_t>& masking_key,
                                  const hidl_vec<KeyParameter>& unwrapping_params,
                                  uint64_t password_sid, uint64_t biometric_sid,
                                  importWrappedKey_cb cb) override;
    Return<void> exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<uint8_t>& client_id, const hidl_vec<uint8_t>& app_data,
                           exportKey_cb cb) override;
    Return<ErrorCode> deleteAllKeys() override;
    Return<ErrorCode> destroyAttestationIds() override;
#if __has_include(<keymasterV4_1/Keymaster.h>)
    // Two calls that are there from Android 11 on.
    using LaterErrorCode = android::hardware::keymaster::V4_1::ErrorCode;
    Return<LaterErrorCode> deviceLocked(bool password_only,
                                        const VerificationToken& verification_token) override;
    Return<LaterErrorCode> earlyBootEnded() override;
#endif

  private:
    struct Operation;

    VersionResult version_ = {};
    const DeviceKey device_key_;
    std::map<uint64_t, std::unique_ptr<Operation>> operations_;
};

}  // namespace example
