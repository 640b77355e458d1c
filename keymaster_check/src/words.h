// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Puts calls and answers into words and values that can be compared with a log.

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keymaster_check {

using Bytes = std::vector<uint8_t>;
using Params = android::hardware::hidl_vec<android::hardware::keymaster::V4_0::KeyParameter>;

// The length and the first bytes, e.g. "100 bytes 00ff…".
std::string inWords(const uint8_t* data, size_t size);

// E.g. "[BLOCK_MODE 32, NONCE 12 bytes 00ff…]".
std::string inWords(const Params& params);

// The tag's name or, for a tag that keymasters are not asked about, its number as "0x%08X".
std::string tagInWords(android::hardware::keymaster::V4_0::Tag tag);

// E.g. "-33 INVALID_KEY_BLOB".
std::string codeInWords(int code);

}  // namespace keymaster_check
