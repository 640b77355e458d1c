// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The calls of a keymaster in short form, with the parameter lists that tests start from.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <vector>

#include "fake_keymaster.h"
#include "results.h"

namespace test {

using keymaster_check::Call;
using soft_keymaster::Keymaster;
using Error = ErrorCode;
using Params = std::vector<KeyParameter>;
using Result = keymaster_check::Answer;

inline constexpr uint32_t kPatchLevel = 202601;
inline constexpr size_t kTagSize = 16;
inline constexpr auto kEncrypt = KeyPurpose::ENCRYPT;
inline constexpr auto kDecrypt = KeyPurpose::DECRYPT;

inline const Params kAesKey = keymaster_check::databaseKeyParams();
// Values out of order, and one whose top bit is set.
inline const Params kEcKey = {
    param(Tag::PURPOSE, KeyPurpose::VERIFY), param(Tag::PURPOSE, KeyPurpose::SIGN),
    param(Tag::EC_CURVE, EcCurve::P_256),    param(Tag::NO_AUTH_REQUIRED, 1),
    param(Tag::CREATION_DATETIME, 0x80),     param(Tag::ALGORITHM, Algorithm::EC)};
inline const Params kRsaKey = {param(Tag::ALGORITHM, Algorithm::RSA), param(Tag::KEY_SIZE, 2048),
                               param(Tag::RSA_PUBLIC_EXPONENT, 65537)};
inline const Params kGcm = keymaster_check::gcmParams();

// `params` with the entries of `changes` in place of those with the same tags.
inline Params with(Params params, const Params& changes) {
    for (const KeyParameter& change : changes) {
        const auto same = [&](const KeyParameter& other) { return other.tag == change.tag; };
        params.erase(std::remove_if(params.begin(), params.end(), same), params.end());
    }
    params.insert(params.end(), changes.begin(), changes.end());
    return params;
}

// The parameters of a key are its characteristics.
inline Result made(Keymaster& km, const keymaster_check::CallRecord& record) {
    Result result = keymaster_check::call(km, record);
    if (result.params.size() == 0) {
        result.params = result.characteristics.softwareEnforced;
    }
    return result;
}

inline Result generate(Keymaster& km, const Params& params) {
    return made(km, {Call::kGenerateKey, {}, params});
}
inline Result characteristics(Keymaster& km, const Bytes& blob) {
    return made(km, {Call::kGetKeyCharacteristics, blob});
}
inline ErrorCode check(Keymaster& km, const Bytes& blob) {
    return characteristics(km, blob).error;
}
inline Result upgrade(Keymaster& km, const Bytes& blob) {
    return made(km, {Call::kUpgradeKey, blob});
}
inline Result attest(Keymaster& km, const Bytes& blob, const Params& params) {
    return made(km, {Call::kAttestKey, blob, params});
}
inline Result begin(Keymaster& km, KeyPurpose purpose, const Bytes& blob, const Params& params) {
    return made(km, {Call::kBegin, blob, params, purpose});
}
inline Result update(Keymaster& km, uint64_t handle, const Params& params, const Bytes& input) {
    return made(km, {Call::kUpdate, {}, params, {}, handle, input});
}
inline Result finish(Keymaster& km, uint64_t handle, const Bytes& input = {}) {
    return made(km, {Call::kFinish, {}, {}, {}, handle, input});
}

}  // namespace test
