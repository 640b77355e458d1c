// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The faults of a FaultKeymaster, the names of its calls, and the faults that have names.

#include <algorithm>
#include <type_traits>
#include <utility>

#include "soft_keymaster/fault_keymaster.h"

namespace soft_keymaster {

namespace {

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
        deviation("output-in-finish", "finish puts out everything, update nothing",
                  &Deviation::output, Deviation::Output::kInFinish),
        deviation("output-in-blocks", "update puts out whole blocks, finish the rest",
                  &Deviation::output, Deviation::Output::kWholeBlocks),
        deviation("nonce-16", "nonces of 16 bytes", &Deviation::nonce_size, 16),
        deviation("tag-12", "tags of 12 bytes", &Deviation::tag_size, 12),
        deviation("fixed-nonce", "the same nonce for every encryption", &Deviation::fixed_nonce,
                  true),
        deviation("unchecked-tag", "a decryption ends well with any tag", &Deviation::unchecked_tag,
                  true),
        deviation("ignored-aad", "associated data counts for nothing",
                  &Deviation::ignored_associated_data, true),
        deviation("small-transport", "calls of 1 MiB less 8 KiB or more fail",
                  &Deviation::transport_limit, kTransportLimit),
        deviation("open-after-errors", "an error ends no operation", &Deviation::open_after_errors,
                  true),
        deviation("ignored-csr-tag", "a request is answered with a chain",
                  &Deviation::ignored_csr_tag, true),
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
