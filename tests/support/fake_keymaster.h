// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster that records what it is asked and gives the answers of a script.

#pragma once

#include <hardware/keymaster_defs.h>
#include <keymaster_check/client.h>
#include <keymaster_check/names.h>
#include <soft_keymaster/soft_keymaster.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "zelkeymaster_result.h"
#include "zelkeymaster_vendor_tags.h"

namespace test {

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;
using namespace android::hardware::keymaster::V4_0;
using keymaster_check::param;

// How an answer reaches the library. The callback may never run although the call succeeds, and the
// call may fail before or after the callback.
enum class Delivery { kWhole, kNoCallback, kLostBefore, kLostAfter };

struct Answer {
    Delivery delivery = Delivery::kWhole;
    int error = 0;
    Bytes output = {};                      // a key blob, or the output of an operation
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

inline std::string hexadecimal(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

inline std::string nameOf(KeyPurpose purpose) {
    static const std::map<KeyPurpose, const char*> names = {
        {KeyPurpose::ENCRYPT, "ENCRYPT"},
        {KeyPurpose::DECRYPT, "DECRYPT"},
        {PWHW_PURPOSE_TO_KEY, "TO_KEY"},
        {PWHW_PURPOSE_TO_ENCRYPTED_KEY, "TO_ENCRYPTED_KEY"}};
    const auto found = names.find(purpose);
    return found != names.end() ? found->second : std::to_string(static_cast<int>(purpose));
}

// "TAG=value", for readable comparisons.
inline std::string described(const KeyParameter& param) {
    const std::string name = keymaster_check::describeTag(param.tag) + "=";
    const uint32_t type = static_cast<uint32_t>(param.tag) >> 28;
    if (type == 7) {
        return name + (param.f.boolValue ? "true" : "false");
    }
    if (type == 8 || type == 9) {
        return name + std::string(param.blob.begin(), param.blob.end());
    }
    const bool wide = type == 5 || type == 6 || type == 10;
    return name + hexadecimal(wide ? param.f.longInteger : param.f.integer);
}

inline std::string described(const hidl_vec<KeyParameter>& params) {
    std::string result;
    for (const KeyParameter& param : params) {
        result += (result.empty() ? "" : " ") + described(param);
    }
    return "[" + result + "]";
}

// The software keymaster handles the calls that the library does not make. This is no
// FaultKeymaster, whose records are copies: tests ask where the arguments lie, since secrets must
// not be copied, and whether tokens are empty.
class FakeKeymaster : public soft_keymaster::SoftKeymaster {
    using Blob = hidl_vec<uint8_t>;
    using Params = hidl_vec<KeyParameter>;
    using AuthToken = HardwareAuthToken;

  public:
    FakeKeymaster() : SoftKeymaster(Options()) {}

    // The answers to each call, by its name, in order. The last one is given again and again. A
    // call without answers is refused as UNIMPLEMENTED.
    std::map<std::string, std::vector<Answer>> answers;

    // The calls that were made: the name, then purpose or handle, key, parameters and input as far
    // as the call has them, e.g. "begin ENCRYPT key [BLOCK_MODE=0x20]" or "update 0x77 [] input".
    // An argument that should be empty and is not shows as "!".
    std::vector<std::string> calls;
    std::set<const uint8_t*> seen;  // the addresses of keys and of parameters' bytes

    Return<void> generateKey(const Params& params, generateKey_cb cb) override {
        return reply("generateKey", " " + list(params), [&](const Answer& a) {
            cb(ErrorCode(a.error), a.output, KeyCharacteristics());
        });
    }
    Return<void> getKeyCharacteristics(const Blob& blob, const Blob& client, const Blob& data,
                                       getKeyCharacteristics_cb cb) override {
        return reply("getKeyCharacteristics", key(blob) + empty(client) + empty(data),
                     [&](const Answer& a) { cb(ErrorCode(a.error), KeyCharacteristics()); });
    }
    Return<void> upgradeKey(const Blob& blob, const Params& params, upgradeKey_cb cb) override {
        return reply("upgradeKey", key(blob) + " " + list(params),
                     [&](const Answer& a) { cb(ErrorCode(a.error), a.output); });
    }
    Return<void> attestKey(const Blob& blob, const Params& params, attestKey_cb cb) override {
        return reply("attestKey", key(blob) + " " + list(params), [&](const Answer& a) {
            cb(ErrorCode(a.error), std::vector<Blob>(a.chain.begin(), a.chain.end()));
        });
    }
    Return<void> begin(KeyPurpose purpose, const Blob& blob, const Params& params,
                       const AuthToken& token, begin_cb cb) override {
        return reply("begin", " " + nameOf(purpose) + key(blob) + " " + list(params) + empty(token),
                     [&](const Answer& a) { cb(ErrorCode(a.error), a.params, a.handle); });
    }
    Return<void> update(uint64_t handle, const Params& params, const Blob& input,
                        const AuthToken& token, const VerificationToken& verification,
                        update_cb cb) override {
        return reply(
            "update",
            " " + hexadecimal(handle) + " " + list(params) + " " +
                std::string(input.begin(), input.end()) + empty(token) + empty(verification),
            [&](const Answer& a) { cb(ErrorCode(a.error), a.consumed, Params(), a.output); });
    }
    Return<void> finish(uint64_t handle, const Params& params, const Blob& input,
                        const Blob& signature, const AuthToken& token,
                        const VerificationToken& verification, finish_cb cb) override {
        return reply("finish",
                     " " + hexadecimal(handle) + " " + list(params) + empty(input) +
                         empty(signature) + empty(token) + empty(verification),
                     [&](const Answer& a) { cb(ErrorCode(a.error), Params(), a.output); });
    }

  private:
    std::string key(const Blob& blob) {
        seen.insert(blob.data());
        return " " + std::string(blob.begin(), blob.end());
    }
    std::string list(const Params& params) {
        for (const KeyParameter& param : params) {
            seen.insert(param.blob.data());
        }
        return described(params);
    }
    static std::string empty(const Blob& blob) { return blob.size() == 0 ? "" : "!"; }
    template <typename Token>
    static std::string empty(const Token& t) {
        return t.challenge == 0 && t.timestamp == 0 ? empty(t.mac) : "!";
    }

    template <typename Callback>
    Return<void> reply(const std::string& name, const std::string& arguments, Callback callback) {
        calls.push_back(name + arguments);
        std::vector<Answer>& script = answers[name];
        const Answer answer = script.empty() ? refused(KM_ERROR_UNIMPLEMENTED) : script.front();
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
};

}  // namespace test
