// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster that answers as a fuzz input says, or well. Its cipher protects nothing and takes no
// time, and yet it refuses altered ciphertext. Any blob is a key.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <vector>

#include "fuzz.h"
#include "zelkeymaster_vendor_tags.h"

namespace fuzz {

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;
using namespace android::hardware::keymaster::V4_0;

class ScriptedKeymaster : public soft_keymaster::SoftKeymaster {
    using Bytes = hidl_vec<uint8_t>;
    using Params = hidl_vec<KeyParameter>;

  public:
    ScriptedKeymaster() : SoftKeymaster(Options()) {}

    // Takes the answers from `input`, which is borrowed. Without an input the keymaster answers
    // well.
    void follow(Input* input) { input_ = input; }

    Return<void> generateKey(const Params&, generateKey_cb cb) override {
        ++keys_;
        return reply(std::vector<uint8_t>(40 + keys_ % 3, keys_),
                     [&](int error, const Bytes& blob) {
                         cb(ErrorCode(error), blob, KeyCharacteristics());
                     });
    }
    Return<void> getKeyCharacteristics(const Bytes&, const Bytes&, const Bytes&,
                                       getKeyCharacteristics_cb cb) override {
        return reply({},
                     [&](int error, const Bytes&) { cb(ErrorCode(error), KeyCharacteristics()); });
    }
    Return<void> upgradeKey(const Bytes& blob, const Params&, upgradeKey_cb cb) override {
        return reply(blob,
                     [&](int error, const Bytes& upgraded) { cb(ErrorCode(error), upgraded); });
    }
    Return<void> attestKey(const Bytes& blob, const Params& params, attestKey_cb cb) override {
        return reply(blob, [&](int error, const Bytes& answer) {
            cb(ErrorCode(error), std::vector<Bytes>(params.size() + answer.size() % 3, answer));
        });
    }

    Return<void> begin(KeyPurpose purpose, const Bytes& blob, const Params& params,
                       const HardwareAuthToken&, begin_cb cb) override {
        if (purpose == PWHW_PURPOSE_TO_KEY || purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
            // A password conversion hands back what it got, under all tags.
            return reply(params[4].blob, [&](int error, const Bytes& answer) {
                std::vector<KeyParameter> out;
                for (const Tag tag :
                     {PWHW_TAG_ENCRYPTED_KEY, PWHW_TAG_KEY, PWHW_TAG_TAG, PWHW_TAG_ROT}) {
                    out.push_back(bytesParameter(tag, answer));
                }
                cb(ErrorCode(error), out, 0);
            });
        }
        operation_ = {};
        operation_.decrypt = purpose == KeyPurpose::DECRYPT;
        operation_.state = mixed(1, blob);
        std::vector<uint8_t> nonce(12, ++nonces_);
        for (const KeyParameter& param : params) {
            if (param.tag == Tag::NONCE) {
                nonce = param.blob;
            }
        }
        operation_.state = mixed(operation_.state, nonce);
        return reply(nonce, [&](int error, const Bytes& answer) {
            Params out;
            if (answer.size() != 0) {
                out = {bytesParameter(Tag::NONCE, answer)};
            }
            cb(ErrorCode(error), out, 77);
        });
    }
    Return<void> update(uint64_t, const Params& params, const Bytes& input,
                        const HardwareAuthToken&, const VerificationToken&, update_cb cb) override {
        for (const KeyParameter& param : params) {
            operation_.state = mixed(operation_.state, param.blob);
        }
        size_t consumed = input.size();
        if (input_ != nullptr) {
            consumed = std::min(consumed, size_t{input_->byte()});
        }
        std::vector<uint8_t>& held = operation_.held;
        held.insert(held.end(), input.data(), input.data() + consumed);
        std::vector<uint8_t> output;
        const size_t kept = operation_.decrypt ? 16 : 0;  // the last bytes may be the tag
        while (held.size() > kept) {
            const uint8_t key = uint8_t(operation_.state);
            output.push_back(held.front() ^ key);
            operation_.state =
                mixed(operation_.state, {operation_.decrypt ? output.back() : held.front()});
            held.erase(held.begin());
        }
        return reply(output, [&](int error, const Bytes& answer) {
            cb(ErrorCode(error), uint32_t(consumed), Params(), answer);
        });
    }
    Return<void> finish(uint64_t, const Params&, const Bytes&, const Bytes&,
                        const HardwareAuthToken&, const VerificationToken&, finish_cb cb) override {
        std::vector<uint8_t> tag(16);
        for (size_t i = 0; i < tag.size(); ++i) {
            tag[i] = uint8_t(mixed(operation_.state, {uint8_t(i)}) >> 8);
        }
        const bool refused = operation_.decrypt && operation_.held != tag;
        return reply(
            operation_.decrypt ? std::vector<uint8_t>() : tag, [&](int error, const Bytes& answer) {
                cb(error == 0 && refused ? ErrorCode::VERIFICATION_FAILED : ErrorCode(error),
                   Params(), answer);
            });
    }

  private:
    static uint64_t mixed(uint64_t state, const std::vector<uint8_t>& bytes) {
        for (const uint8_t byte : bytes) {
            state = (state ^ byte) * 0x100000001b3u;
            state ^= state >> 29;
        }
        return state * 0x9e3779b97f4a7c15u;
    }
    static KeyParameter bytesParameter(Tag tag, const Bytes& bytes) {
        KeyParameter param = {};
        param.tag = tag;
        param.blob = bytes;
        return param;
    }

    template <typename Callback>
    Return<void> reply(Bytes answer, Callback callback) {
        const int kind = input_ == nullptr ? 0 : input_->byte() & 7;
        int error = 0;
        if (kind == 1) {
            error = -int(input_->byte());
        } else if (kind == 2) {
            answer.resize(input_->byte());
        }
        if (kind != 3 && kind != 4) {  // lost before the callback, none at all
            callback(error, answer);
        }
        return kind == 3 || kind == 5 ? Return<void>(Status::fromStatusT(android::DEAD_OBJECT))
                                      : Void();
    }

    struct Operation {
        bool decrypt;
        uint64_t state;
        std::vector<uint8_t> held;
    };

    Input* input_ = nullptr;
    Operation operation_ = {};
    uint8_t keys_ = 0;
    uint8_t nonces_ = 0;
};

}  // namespace fuzz
