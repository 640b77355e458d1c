// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Calls and answers in words and values, for people who compare them with a log.

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

// "100 bytes 00ff…": the length and the first bytes.
std::string inWords(const uint8_t* data, size_t size);

// "[BLOCK_MODE 32, NONCE 12 bytes 00ff…]"
std::string inWords(const Params& params);

// "-33 INVALID_KEY_BLOB"
std::string codeInWords(int code);

}  // namespace keymaster_check
