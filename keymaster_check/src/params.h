// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes and finds single parameters.

#pragma once

#include <algorithm>

#include "words.h"

namespace keymaster_check {

// A parameter whose value is a 32-bit number.
template <typename Value>
android::hardware::keymaster::V4_0::KeyParameter integerParam(
    android::hardware::keymaster::V4_0::Tag tag, Value value) {
    android::hardware::keymaster::V4_0::KeyParameter param = {};
    param.tag = tag;
    param.f.integer = static_cast<uint32_t>(value);
    return param;
}

inline android::hardware::keymaster::V4_0::KeyParameter bytesParam(
    android::hardware::keymaster::V4_0::Tag tag, const Bytes& bytes) {
    android::hardware::keymaster::V4_0::KeyParameter param = {};
    param.tag = tag;
    param.blob = bytes;
    return param;
}

inline android::hardware::keymaster::V4_0::KeyParameter trueParam(
    android::hardware::keymaster::V4_0::Tag tag) {
    android::hardware::keymaster::V4_0::KeyParameter param = {};
    param.tag = tag;
    param.f.boolValue = true;
    return param;
}

// The first parameter with this tag, or null.
inline const android::hardware::keymaster::V4_0::KeyParameter* findParam(
    const Params& params, android::hardware::keymaster::V4_0::Tag tag) {
    const auto found = std::find_if(params.begin(), params.end(),
                                    [tag](const auto& param) { return param.tag == tag; });
    return found == params.end() ? nullptr : &*found;
}

}  // namespace keymaster_check
