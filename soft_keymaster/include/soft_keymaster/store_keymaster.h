// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What all keymasters here stand on: the calls that stores and services make arrive in one
// function, and the others are refused. Also the platform's names that the interface uses.

#pragma once

#include <functional>

#include <keymaster_check/client.h>

namespace soft_keymaster {

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::HardwareAuthToken;
using android::hardware::keymaster::V4_0::HmacSharingParameters;
using android::hardware::keymaster::V4_0::KeyCharacteristics;
using android::hardware::keymaster::V4_0::KeyFormat;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::KeyPurpose;
using android::hardware::keymaster::V4_0::Tag;
using android::hardware::keymaster::V4_0::VerificationToken;
using android::hardware::keymaster::V4_0::support::Keymaster;
using keymaster_check::Answer;
using keymaster_check::Call;
using keymaster_check::CallRecord;

class StoreKeymaster : public Keymaster {
  public:
    // Runs the caller's callback with an answer. It may run several times, or not at all, and not
    // after handle() has returned.
    using Reply = std::function<void(const Answer&)>;

    using Keymaster::Keymaster;

    // Makes a call. The record borrows the caller's key, parameters and bytes: a copy of it may be
    // kept. A call without a callback does not get here.
    virtual Return<void> handle(const CallRecord& call, const Reply& reply) = 0;

    Return<void> getHardwareInfo(getHardwareInfo_cb cb) override;
    Return<void> generateKey(const hidl_vec<KeyParameter>& key_params, generateKey_cb cb) override;
    Return<void> importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                           const hidl_vec<uint8_t>& key_data, importKey_cb cb) override;
    Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data,
                                       getKeyCharacteristics_cb cb) override;
    Return<void> exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<uint8_t>& client_id, const hidl_vec<uint8_t>& app_data,
                           exportKey_cb cb) override;
    Return<void> attestKey(const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<KeyParameter>& attest_params, attestKey_cb cb) override;
    Return<void> upgradeKey(const hidl_vec<uint8_t>& key_blob,
                            const hidl_vec<KeyParameter>& upgrade_params,
                            upgradeKey_cb cb) override;
    Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& key_blob) override;
    Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                       const hidl_vec<KeyParameter>& in_params, const HardwareAuthToken& auth_token,
                       begin_cb cb) override;
    Return<void> update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, update_cb cb) override;
    Return<void> finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                        const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, finish_cb cb) override;
    Return<ErrorCode> abort(uint64_t handle) override;

    // The calls that no store needs return UNIMPLEMENTED.
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb cb) override {
        return refuse(cb, HmacSharingParameters());
    }
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>&,
                                   computeSharedHmac_cb cb) override {
        return refuse(cb, hidl_vec<uint8_t>());
    }
    Return<void> verifyAuthorization(uint64_t, const hidl_vec<KeyParameter>&,
                                     const HardwareAuthToken&, verifyAuthorization_cb cb) override {
        return refuse(cb, VerificationToken());
    }
    Return<void> importWrappedKey(const hidl_vec<uint8_t>&, const hidl_vec<uint8_t>&,
                                  const hidl_vec<uint8_t>&, const hidl_vec<KeyParameter>&, uint64_t,
                                  uint64_t, importWrappedKey_cb cb) override {
        return refuse(cb, hidl_vec<uint8_t>(), KeyCharacteristics());
    }
    Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>&) override {
        return ErrorCode::UNIMPLEMENTED;
    }
    Return<ErrorCode> deleteAllKeys() override { return ErrorCode::UNIMPLEMENTED; }
    Return<ErrorCode> destroyAttestationIds() override { return ErrorCode::UNIMPLEMENTED; }

  private:
    template <typename Callback, typename... Values>
    static Return<void> refuse(const Callback& cb, const Values&... values) {
        cb(ErrorCode::UNIMPLEMENTED, values...);
        return android::hardware::Void();
    }
    // `give` passes the values of an answer to `cb`.
    template <typename Callback, typename Give>
    Return<void> ask(const CallRecord& call, const Callback& cb, Give give);
    // For calls that return one code and have no callback. Without transport the code is lost.
    Return<ErrorCode> askForCode(const CallRecord& call);
};

// What a call returns when it did not reach the keymaster, or its answer was lost.
inline android::hardware::Status transportFailure() {
    return android::hardware::Status::fromStatusT(android::DEAD_OBJECT);
}

}  // namespace soft_keymaster
