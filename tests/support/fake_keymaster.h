// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster that records what it is asked and gives the answers of a script.

#pragma once

#include <keymasterV4_0/Keymaster.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "temp_dir.h"

namespace test {

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;
using namespace android::hardware::keymaster::V4_0;

// How an answer reaches the library: as it should, not at all although the call succeeds, or with a
// call that fails before or after the callback.
enum class Delivery { kWhole, kNoCallback, kLostBefore, kLostAfter };

// What the platform says about a failed call.
inline const char kDead[] =
    "E object: HIDL call failed with Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '";

struct Answer {
    Delivery delivery = Delivery::kWhole;
    int error = 0;
    Bytes output = {};                      // a key blob, or what an operation puts out
    std::vector<KeyParameter> params = {};  // begin
    uint64_t handle = 0;                    // begin
    uint32_t consumed = 0;                  // update
    std::vector<Bytes> chain = {};          // attestKey
};

inline Answer refused(int error) {
    return {Delivery::kWhole, error};
}
inline Answer answered(Bytes output) {
    return {Delivery::kWhole, 0, std::move(output)};
}
inline Answer delivered(Delivery delivery, Answer answer = {}) {
    answer.delivery = delivery;
    return answer;
}

inline KeyParameter bytesParameter(Tag tag, const Bytes& bytes) {
    KeyParameter param = {};
    param.tag = tag;
    param.blob = bytes;
    return param;
}

// "tag=value" in hexadecimal, for readable comparisons.
inline std::string described(const KeyParameter& param) {
    char text[32];
    std::snprintf(text, sizeof(text), "%x=", static_cast<unsigned>(param.tag));
    std::string result = text;
    const uint32_t type = static_cast<uint32_t>(param.tag) >> 28;
    if (type == 7) {
        return result + (param.f.boolValue ? "true" : "false");
    }
    if (type != 8 && type != 9) {
        const bool wide = type == 5 || type == 6 || type == 10;
        std::snprintf(text, sizeof(text), "%llx",
                      wide ? static_cast<unsigned long long>(param.f.longInteger)
                           : static_cast<unsigned long long>(param.f.integer));
        return result + text;
    }
    return result + std::string(param.blob.begin(), param.blob.end());
}

inline std::vector<std::string> described(const hidl_vec<KeyParameter>& params) {
    std::vector<std::string> result;
    for (const KeyParameter& param : params) {
        result.push_back(described(param));
    }
    return result;
}

struct KmCall {
    std::string name;
    std::vector<std::string> params;         // described()
    std::vector<const uint8_t*> param_data;  // where their blobs lie
    Bytes blob;                              // the key
    const uint8_t* blob_data;
    uint32_t purpose;
    uint64_t handle;
    Bytes input;
    // Whether everything else was empty: tokens, client id, application data, signature.
    bool rest_empty;
};

class FakeKeymaster : public support::Keymaster {
    using Blob = hidl_vec<uint8_t>;
    using Params = hidl_vec<KeyParameter>;
    using AuthToken = HardwareAuthToken;

  public:
    FakeKeymaster() : Keymaster("", "") {}

    // Answers by the call's name, in order; the last one stays. Without any: UNIMPLEMENTED.
    std::map<std::string, std::vector<Answer>> answers;
    std::vector<KmCall> calls;

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const KmCall& call : calls) {
            result.push_back(call.name);
        }
        return result;
    }

    Return<void> generateKey(const Params& params, generateKey_cb cb) override {
        return reply(record("generateKey", params, {}), [&](const Answer& a) {
            cb(ErrorCode(a.error), a.output, KeyCharacteristics());
        });
    }
    Return<void> getKeyCharacteristics(const Blob& blob, const Blob& client, const Blob& data,
                                       getKeyCharacteristics_cb cb) override {
        KmCall call = record("getKeyCharacteristics", {}, blob);
        call.rest_empty = client.size() == 0 && data.size() == 0;
        return reply(call, [&](const Answer& a) { cb(ErrorCode(a.error), KeyCharacteristics()); });
    }
    Return<void> upgradeKey(const Blob& blob, const Params& params, upgradeKey_cb cb) override {
        return reply(record("upgradeKey", params, blob),
                     [&](const Answer& a) { cb(ErrorCode(a.error), a.output); });
    }
    Return<void> attestKey(const Blob& blob, const Params& params, attestKey_cb cb) override {
        return reply(record("attestKey", params, blob), [&](const Answer& a) {
            cb(ErrorCode(a.error), std::vector<Blob>(a.chain.begin(), a.chain.end()));
        });
    }
    Return<void> begin(KeyPurpose purpose, const Blob& blob, const Params& params,
                       const AuthToken& token, begin_cb cb) override {
        KmCall call = record("begin", params, blob);
        call.purpose = static_cast<uint32_t>(purpose);
        call.rest_empty = isEmpty(token);
        return reply(call, [&](const Answer& a) { cb(ErrorCode(a.error), a.params, a.handle); });
    }
    Return<void> update(uint64_t handle, const Params& params, const Blob& input,
                        const AuthToken& token, const VerificationToken& verification,
                        update_cb cb) override {
        KmCall call = record("update", params, {});
        call.handle = handle;
        call.input = input;
        call.rest_empty = isEmpty(token) && isEmpty(verification);
        return reply(
            call, [&](const Answer& a) { cb(ErrorCode(a.error), a.consumed, Params(), a.output); });
    }
    Return<void> finish(uint64_t handle, const Params& params, const Blob& input,
                        const Blob& signature, const AuthToken& token,
                        const VerificationToken& verification, finish_cb cb) override {
        KmCall call = record("finish", params, {});
        call.handle = handle;
        call.input = input;
        call.rest_empty = isEmpty(token) && isEmpty(verification) && signature.size() == 0;
        return reply(call, [&](const Answer& a) { cb(ErrorCode(a.error), Params(), a.output); });
    }

    // The library has no use for the others.
    const VersionResult& halVersion() const override { return version_; }
    Return<void> getHardwareInfo(getHardwareInfo_cb) override { return unexpected("info"); }
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb) override {
        return unexpected("getHmacSharingParameters");
    }
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>&,
                                   computeSharedHmac_cb) override {
        return unexpected("computeSharedHmac");
    }
    Return<void> verifyAuthorization(uint64_t, const Params&, const AuthToken&,
                                     verifyAuthorization_cb) override {
        return unexpected("verifyAuthorization");
    }
    Return<void> importKey(const Params&, KeyFormat, const Blob&, importKey_cb) override {
        return unexpected("importKey");
    }
    Return<void> importWrappedKey(const Blob&, const Blob&, const Blob&, const Params&, uint64_t,
                                  uint64_t, importWrappedKey_cb) override {
        return unexpected("importWrappedKey");
    }
    Return<void> exportKey(KeyFormat, const Blob&, const Blob&, const Blob&,
                           exportKey_cb) override {
        return unexpected("exportKey");
    }
    Return<ErrorCode> addRngEntropy(const Blob&) override { return ErrorCode::UNIMPLEMENTED; }
    Return<ErrorCode> deleteKey(const Blob&) override { return ErrorCode::UNIMPLEMENTED; }
    Return<ErrorCode> deleteAllKeys() override { return ErrorCode::UNIMPLEMENTED; }
    Return<ErrorCode> destroyAttestationIds() override { return ErrorCode::UNIMPLEMENTED; }
    Return<ErrorCode> abort(uint64_t) override { return ErrorCode::UNIMPLEMENTED; }

  private:
    static KmCall record(const char* name, const Params& params, const Blob& blob) {
        KmCall call = {name, described(params), {}, blob, blob.data(), 0, 0, {}, true};
        for (const KeyParameter& param : params) {
            call.param_data.push_back(param.blob.data());
        }
        return call;
    }
    static bool isEmpty(const HardwareAuthToken& token) {
        return token.challenge == 0 && token.userId == 0 && token.authenticatorId == 0 &&
               token.authenticatorType == HardwareAuthenticatorType::NONE && token.timestamp == 0 &&
               token.mac.size() == 0;
    }
    static bool isEmpty(const VerificationToken& token) {
        return token.challenge == 0 && token.timestamp == 0 &&
               token.parametersVerified.size() == 0 &&
               token.securityLevel == SecurityLevel::SOFTWARE && token.mac.size() == 0;
    }

    template <typename Callback>
    Return<void> reply(const KmCall& call, Callback callback) {
        calls.push_back(call);
        std::vector<Answer>& script = answers[call.name];
        const Answer answer = script.empty() ? refused(-100) : script.front();
        if (script.size() > 1) {
            script.erase(script.begin());
        }
        if (answer.delivery == Delivery::kWhole || answer.delivery == Delivery::kLostAfter) {
            callback(answer);
        }
        const bool lost =
            answer.delivery == Delivery::kLostBefore || answer.delivery == Delivery::kLostAfter;
        return lost ? Return<void>(Status::fromStatusT(android::DEAD_OBJECT)) : Void();
    }
    Return<void> unexpected(const char* name) {
        ADD_FAILURE() << name;
        return Void();
    }

    VersionResult version_ = {};
};

}  // namespace test
