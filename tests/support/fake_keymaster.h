// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster that records what it is asked and gives the answers of a script.

#pragma once

#include <hardware/keymaster_defs.h>
#include <keymaster_check/client.h>
#include <keymaster_check/names.h>
#include <soft_keymaster/store_keymaster.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "temp_dir.h"
#include "zelkeymaster_result.h"
#include "zelkeymaster_vendor_tags.h"

namespace test {

using android::hardware::hidl_vec;
using android::hardware::Return;
using namespace android::hardware::keymaster::V4_0;
using keymaster_check::Answer;
using keymaster_check::Call;
using keymaster_check::CallRecord;
using keymaster_check::param;

// What a script is made of. The callback may never run although the call succeeds, and the call may
// fail before or after the callback.
inline Answer refused(int error) {
    Answer answer;
    answer.take(ErrorCode(error));
    return answer;
}
inline Answer answered(Bytes output = {}) {
    Answer answer = refused(0);
    answer.output = std::move(output);
    return answer;
}
inline Answer lost(Answer answer = {}) {
    answer.transport = false;
    return answer;
}
inline const Answer kNoCallback = {};

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
    if (keymaster_check::hasBytes(param.tag)) {
        return name + std::string(param.blob.begin(), param.blob.end());
    }
    const uint64_t value = keymaster_check::numberOf(param);
    if (keymaster_check::typeOf(param.tag) == TagType::BOOL) {
        return name + (value != 0 ? "true" : "false");
    }
    return name + hexadecimal(value);
}

inline std::string described(const hidl_vec<KeyParameter>& params) {
    std::string result;
    for (const KeyParameter& param : params) {
        result += (result.empty() ? "" : " ") + described(param);
    }
    return "[" + result + "]";
}

// This is no FaultKeymaster, whose records are copies: tests ask where the arguments lie, since
// secrets must not be copied.
class FakeKeymaster : public soft_keymaster::StoreKeymaster {
  public:
    FakeKeymaster() : StoreKeymaster("fake", "fake") {}

    // The answers to each call, by its name, in order. The last one is given again and again. A
    // call without answers is refused as UNIMPLEMENTED.
    std::map<std::string, std::vector<Answer>> answers;

    // The calls that were made: the name, then purpose or handle, key, parameters and input as far
    // as the call has them, e.g. "begin ENCRYPT key [BLOCK_MODE=0x20]" or "update 0x77 [] input".
    // An argument that should be empty and is not shows as "!".
    std::vector<std::string> calls;
    std::set<const uint8_t*> seen;  // the addresses of keys and of parameters' bytes

    const VersionResult& halVersion() const override { return version_; }

    Return<void> handle(const CallRecord& call, const Reply& reply) override {
        calls.push_back(noted(call));
        std::vector<Answer>& script = answers[callName(call.call)];
        const Answer answer = script.empty() ? refused(KM_ERROR_UNIMPLEMENTED) : script.front();
        if (script.size() > 1) {
            script.erase(script.begin());
        }
        if (answer.arrived) {
            reply(answer);
        }
        return answer.transport ? Return<void>() : soft_keymaster::transportFailure();
    }

  private:
    std::string noted(const CallRecord& call) {
        const bool in_operation = call.call == Call::kUpdate || call.call == Call::kFinish;
        std::string text = callName(call.call);
        if (call.call == Call::kBegin) {
            text += " " + nameOf(call.purpose);
        }
        if (in_operation) {
            text += " " + hexadecimal(call.handle);
        } else if (call.call != Call::kGenerateKey) {
            seen.insert(call.key_blob.data());
            text += " " + std::string(call.key_blob.begin(), call.key_blob.end());
        }
        if (call.call != Call::kGetKeyCharacteristics) {
            for (const KeyParameter& param : call.params) {
                seen.insert(param.blob.data());
            }
            text += " " + described(call.params);
        }
        if (call.call == Call::kUpdate) {
            text += " " + std::string(call.input.begin(), call.input.end());
        }
        return text + (restIsEmpty(call) ? "" : "!");
    }

    static bool restIsEmpty(const CallRecord& call) {
        const size_t bytes = call.client_id.size() + call.client_data.size() +
                             call.signature.size() + call.auth_token.mac.size() +
                             call.verification.mac.size() +
                             (call.call == Call::kUpdate ? 0 : call.input.size());
        return bytes + call.auth_token.challenge + call.auth_token.timestamp +
                   call.verification.challenge + call.verification.timestamp ==
               0;
    }

    const VersionResult version_ = {};
};

}  // namespace test
