// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The faults that a FaultKeymaster can inject, and the names of the calls that they hit.

#include <algorithm>
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

// Keeps the bytes that fit and fills up with zeros.
void resizeWithZeros(hidl_vec<uint8_t>& bytes, size_t size) {
    const size_t kept = std::min(bytes.size(), size);
    bytes.resize(size);
    std::fill(bytes.begin() + kept, bytes.end(), uint8_t{0});
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

}  // namespace soft_keymaster
