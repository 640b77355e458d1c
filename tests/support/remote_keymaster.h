// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A software keymaster as if it ran in another process: its allocations never fail. The callbacks
// run in the library's process, where allocations may fail.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <functional>
#include <string_view>

#include "failing_memory.h"

namespace test {

class RemoteKeymaster : public soft_keymaster::SoftKeymaster {
    template <typename T>
    using hidl_vec = android::hardware::hidl_vec<T>;
    template <typename T>
    using Return = android::hardware::Return<T>;
    using Base = soft_keymaster::SoftKeymaster;
    using Blob = hidl_vec<uint8_t>;
    using Params = hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>;
    using Purpose = android::hardware::keymaster::V4_0::KeyPurpose;
    using Token = android::hardware::keymaster::V4_0::HardwareAuthToken;
    using Verification = android::hardware::keymaster::V4_0::VerificationToken;

  public:
    using Base::Base;

    std::string_view lost;  // the name of the call that does not reach the keymaster; may be empty

    Return<void> generateKey(const Params& params, generateKey_cb cb) override {
        return remote("generateKey", [&] { return Base::generateKey(params, here(cb)); });
    }
    Return<void> getKeyCharacteristics(const Blob& blob, const Blob& id, const Blob& data,
                                       getKeyCharacteristics_cb cb) override {
        return remote("getKeyCharacteristics",
                      [&] { return Base::getKeyCharacteristics(blob, id, data, here(cb)); });
    }
    Return<void> attestKey(const Blob& blob, const Params& params, attestKey_cb cb) override {
        return remote("attestKey", [&] { return Base::attestKey(blob, params, here(cb)); });
    }
    Return<void> upgradeKey(const Blob& blob, const Params& params, upgradeKey_cb cb) override {
        return remote("upgradeKey", [&] { return Base::upgradeKey(blob, params, here(cb)); });
    }
    Return<void> begin(Purpose purpose, const Blob& blob, const Params& params, const Token& token,
                       begin_cb cb) override {
        return remote("begin", [&] { return Base::begin(purpose, blob, params, token, here(cb)); });
    }
    Return<void> update(uint64_t handle, const Params& params, const Blob& input,
                        const Token& token, const Verification& verification,
                        update_cb cb) override {
        return remote("update", [&] {
            return Base::update(handle, params, input, token, verification, here(cb));
        });
    }
    Return<void> finish(uint64_t handle, const Params& params, const Blob& input,
                        const Blob& signature, const Token& token, const Verification& verification,
                        finish_cb cb) override {
        return remote("finish", [&] {
            return Base::finish(handle, params, input, signature, token, verification, here(cb));
        });
    }

  private:
    template <typename Call>
    Return<void> remote(std::string_view name, Call call) {
        const AllocationsWork there;
        using android::hardware::Status;
        return name == lost ? Return<void>(Status::fromStatusT(android::DEAD_OBJECT)) : call();
    }

    template <typename... Args>
    static std::function<void(Args...)> here(std::function<void(Args...)> callback) {
        return [callback](Args... args) {
            const AllocationsFail again;
            callback(args...);
        };
    }
};

}  // namespace test
