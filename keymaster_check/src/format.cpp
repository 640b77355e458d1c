// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "format.h"

#include <algorithm>
#include <cstdio>

namespace keymaster_check {
namespace {

using android::hardware::keymaster::V4_0::TagType;

constexpr size_t kShownBytes = 16;

std::string describeValue(const KeyParameter& param) {
    switch (static_cast<TagType>(static_cast<uint32_t>(param.tag) & 0xF0000000u)) {
        case TagType::BYTES:
        case TagType::BIGNUM:
            return describe(param.blob.data(), param.blob.size());
        case TagType::BOOL:
            return param.f.boolValue ? "true" : "false";
        case TagType::ULONG:
        case TagType::ULONG_REP:
        case TagType::DATE:
            return std::to_string(param.f.longInteger);
        default:
            return std::to_string(param.f.integer);
    }
}

}  // namespace

std::string describe(const uint8_t* data, size_t size) {
    std::string text = std::to_string(size) + (size == 1 ? " byte" : " bytes");
    for (size_t i = 0; i < std::min(size, kShownBytes); ++i) {
        char digits[4];
        std::snprintf(digits, sizeof(digits), i == 0 ? " %02x" : "%02x", data[i]);
        text += digits;
    }
    return text + (size > kShownBytes ? "..." : "");
}

std::string describe(const Params& params) {
    std::string text;
    for (size_t i = 0; i < params.size(); ++i) {
        text += (i == 0 ? "" : ", ") + describeTag(params[i].tag) + " " + describeValue(params[i]);
    }
    return "[" + text + "]";
}

}  // namespace keymaster_check
