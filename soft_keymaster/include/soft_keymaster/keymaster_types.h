// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The platform's names that the software keymaster's interface uses, and the calls that it lacks.

#pragma once

#include <keymasterV4_0/Keymaster.h>

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

// A keymaster without the calls that no store needs: they return UNIMPLEMENTED.
class StoreKeymaster : public Keymaster {
  public:
    using Keymaster::Keymaster;

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
};

}  // namespace soft_keymaster
