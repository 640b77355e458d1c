// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Byte strings: their hash, their form for people, and their conversion to and from the keymaster's
// byte vectors.

#pragma once

#include <hidl/HidlSupport.h>

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

// Begins error files, and what spreadsheets write.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The bytes in hexadecimal, two digits each.
std::string hex(std::string_view bytes);

// The pieces between the separators; one more than there are separators.
std::vector<std::string_view> split(std::string_view text, char separator);

std::string sha256(std::string_view bytes);

// These two copy the bytes.
inline android::hardware::hidl_vec<uint8_t> toVec(const std::string& bytes) {
    return android::hardware::hidl_vec<uint8_t>(bytes.begin(), bytes.end());
}

inline std::string toBytes(const android::hardware::hidl_vec<uint8_t>& vec) {
    return std::string(vec.begin(), vec.end());
}

}  // namespace zelkm_tool
