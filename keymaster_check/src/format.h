// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Formats calls, replies and values as text that can be compared with a log.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "keymaster_check/client.h"
#include "keymaster_check/names.h"

namespace keymaster_check {

// The length and the first bytes, e.g. "100 bytes 00ff…".
std::string describe(const uint8_t* data, size_t size);

// E.g. "[BLOCK_MODE 32, NONCE 12 bytes 00ff…]".
std::string describe(const Params& params);

}  // namespace keymaster_check
