// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The faults of a FaultKeymaster, the names of its calls, and the faults that have names.

#include <algorithm>
#include <memory>
#include <set>
#include <type_traits>
#include <utility>

#include "params.h"
#include "soft_keymaster/fault_keymaster.h"

namespace soft_keymaster {

namespace {

using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::BlockMode;
using android::hardware::keymaster::V4_0::PaddingMode;

constexpr const char* kCallNames[] = {
    "getHardwareInfo",
    "getHmacSharingParameters",
    "computeSharedHmac",
    "verifyAuthorization",
    "addRngEntropy",
    "generateKey",
    "importKey",
    "importWrappedKey",
    "getKeyCharacteristics",
    "exportKey",
    "attestKey",
    "upgradeKey",
    "deleteKey",
    "deleteAllKeys",
    "destroyAttestationIds",
    "begin",
    "update",
    "finish",
    "abort",
};

// 1 MiB less two pages: what the calls of a process share on a device.
constexpr size_t kTransportLimit = (1 << 20) - 2 * 4096;

template <typename Value>
using Member = Value Deviation::*;

template <typename Value>
NamedFault deviation(const char* name, const char* what, Member<Value> member,
                     std::common_type_t<Value> value) {
    Deviation deviation;
    deviation.*member = value;
    return {name, what, [deviation](FaultKeymaster& km) { km.deviate(deviation); }};
}

// Changes what upgradeKey returns when it upgrades a key. `old` is the key to upgrade.
NamedFault upgrade(
    const char* name, const char* what,
    std::function<void(FaultKeymaster& km, Answer& answer, const hidl_vec<uint8_t>& old)> change) {
    return {name, what, [change = std::move(change)](FaultKeymaster& km) {
                km.planEach(Call::kUpgradeKey, Fault::alter([&km, change](Answer& answer) {
                                if (answer.output.size() != 0) {
                                    const hidl_vec<uint8_t> old = km.calls().back().key_blob;
                                    change(km, answer, old);
                                }
                            }));
            }};
}

// Refuses keys that this object has not made, in all calls that take a key.
void keepKeysInMemory(FaultKeymaster& km) {
    const auto made = std::make_shared<std::set<std::vector<uint8_t>>>();
    km.planEach(Call::kGenerateKey,
                Fault::alter([made](Answer& answer) { made->insert(answer.output); }));
    for (const Call call : {Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpgradeKey}) {
        km.planEach(call, Fault::alter([&km, made](Answer& answer) {
                        const hidl_vec<uint8_t>& blob = km.calls().back().key_blob;
                        if (blob.size() != 0 && made->count(blob) == 0) {
                            answer = Answer();
                            answer.error = ErrorCode::INVALID_KEY_BLOB;
                        }
                    }));
    }
}

// Keeps the bytes that fit and fills up with zeros.
void resizeWithZeros(hidl_vec<uint8_t>& bytes, size_t size) {
    const size_t kept = std::min(bytes.size(), size);
    bytes.resize(size);
    std::fill(bytes.data() + kept, bytes.data() + size, uint8_t{0});
}

}  // namespace

const char* callName(Call call) {
    return kCallNames[static_cast<size_t>(call)];
}

Fault Fault::error(ErrorCode code) {
    return {Kind::kAnswerError, code, nullptr};
}

Fault Fault::transportBeforeCallback() {
    return {Kind::kTransportBeforeCallback, ErrorCode::OK, nullptr};
}

Fault Fault::transportAfterCallback() {
    return {Kind::kTransportAfterCallback, ErrorCode::OK, nullptr};
}

Fault Fault::noCallback() {
    return {Kind::kNoCallback, ErrorCode::OK, nullptr};
}

Fault Fault::alter(std::function<void(Answer&)> change) {
    return {Kind::kAlter, ErrorCode::OK, std::move(change)};
}

Fault Fault::callbackTwice() {
    return {Kind::kCallbackTwice, ErrorCode::OK, nullptr};
}

Fault Fault::callbackOnThread() {
    return {Kind::kCallbackOnThread, ErrorCode::OK, nullptr};
}

Fault Fault::slow(std::chrono::milliseconds delay) {
    return {Kind::kSlow, ErrorCode::OK, nullptr, delay};
}

Fault Fault::nonceSize(size_t size) {
    return alter([size](Answer& answer) {
        std::vector<KeyParameter> params;
        for (KeyParameter& param : answer.params) {
            if (param.tag != Tag::NONCE) {
                params.push_back(param);
            } else if (size > 0) {
                resizeWithZeros(param.blob, size);
                params.push_back(param);
            }
        }
        answer.params = params;
    });
}

Fault Fault::outputSize(size_t size) {
    return alter([size](Answer& answer) { resizeWithZeros(answer.output, size); });
}

const std::vector<NamedFault>& namedFaults() {
    static const std::vector<NamedFault> faults = {
        deviation("output-in-finish", "finish returns everything, update nothing",
                  &Deviation::output, Deviation::Output::kInFinish),
        deviation("output-in-blocks", "update returns whole blocks, finish the rest",
                  &Deviation::output, Deviation::Output::kWholeBlocks),
        deviation("nonce-16", "nonces of 16 bytes", &Deviation::nonce_size, 16),
        deviation("tag-12", "tags of 12 bytes", &Deviation::tag_size, 12),
        deviation("fixed-nonce", "the same nonce for every encryption", &Deviation::fixed_nonce,
                  true),
        deviation("counted-nonce", "nonces are a counter that each start resets",
                  &Deviation::counted_nonces, true),
        deviation("unchecked-tag", "a decryption succeeds with any tag", &Deviation::unchecked_tag,
                  true),
        deviation("ignored-aad", "associated data is ignored", &Deviation::ignored_associated_data,
                  true),
        deviation("small-transport", "calls of 1 MiB less 8 KiB or more fail",
                  &Deviation::transport_limit, kTransportLimit),
        deviation("open-after-errors", "an operation stays open after an error",
                  &Deviation::open_after_errors, true),
        deviation("open-after-refusals", "a begin that is refused leaves an operation open",
                  &Deviation::open_after_refusals, true),
        deviation("ignored-csr-tag", "a signing request gets a chain", &Deviation::ignored_csr_tag,
                  true),
        upgrade("upgrade-other-key", "an upgrade returns another key",
                [](FaultKeymaster& km, Answer& answer, const hidl_vec<uint8_t>&) {
                    const Params params = {
                        integerParam(Tag::ALGORITHM, static_cast<uint32_t>(Algorithm::AES)),
                        integerParam(Tag::KEY_SIZE, 256),
                        integerParam(Tag::BLOCK_MODE, static_cast<uint32_t>(BlockMode::GCM)),
                        integerParam(Tag::PADDING, static_cast<uint32_t>(PaddingMode::NONE)),
                        integerParam(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::ENCRYPT)),
                        integerParam(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::DECRYPT)),
                        integerParam(Tag::MIN_MAC_LENGTH, 128)};
                    static_cast<void>(
                        km.generateKey(params, [&answer](ErrorCode, const hidl_vec<uint8_t>& blob,
                                                         const KeyCharacteristics&) {
                              answer.output = blob;
                          }).isOk());
                }),
        upgrade("upgrade-garbage", "an upgrade returns garbage",
                [](FaultKeymaster&, Answer& answer, const hidl_vec<uint8_t>&) {
                    answer.output = {1, 2, 3};
                }),
        upgrade("upgrade-same", "an upgrade changes nothing",
                [](FaultKeymaster&, Answer& answer, const hidl_vec<uint8_t>& old) {
                    answer.output = old;
                }),
        upgrade(
            "upgrade-empty", "an upgrade returns no key",
            [](FaultKeymaster&, Answer& answer, const hidl_vec<uint8_t>&) { answer.output = {}; }),
        {"upgrade-missing", "upgradeKey is not implemented",
         [](FaultKeymaster& km) {
             km.planEach(Call::kUpgradeKey, Fault::error(ErrorCode::UNIMPLEMENTED));
         }},
        {"upgrade-not-asked", "a key that needs an upgrade is refused with -33",
         [](FaultKeymaster& km) {
             km.planEachCall(Fault::alter([](Answer& answer) {
                 if (answer.error == ErrorCode::KEY_REQUIRES_UPGRADE) {
                     answer.error = ErrorCode::INVALID_KEY_BLOB;
                 }
             }));
         }},
        {"keys-in-memory", "a restart of the keymaster loses its keys", keepKeysInMemory},
        {"callback-twice", "every callback runs twice",
         [](FaultKeymaster& km) { km.planEachCall(Fault::callbackTwice()); }},
        {"callback-on-thread", "callbacks run on another thread",
         [](FaultKeymaster& km) { km.planEachCall(Fault::callbackOnThread()); }},
        {"slow-call", "the first generateKey takes 1.2 s",
         [](FaultKeymaster& km) {
             km.plan(Call::kGenerateKey, 1, Fault::slow(std::chrono::milliseconds(1200)));
         }},
    };
    return faults;
}

}  // namespace soft_keymaster
