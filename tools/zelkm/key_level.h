// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The patch level at which a key of the software keymaster was made or last upgraded.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <cstdint>
#include <optional>
#include <string>

#include "directory.h"

namespace zelkm_tool {

// Sets the keymaster to the level of a key, and returns it. Nothing when the root key does not open
// the key.
std::optional<uint32_t> goToLevelOf(soft_keymaster::SoftKeymaster* keymaster,
                                    const std::string& key);

// The level of the key in a store directory. Nothing when the key or the root key is missing,
// cannot be read, or is of another store.
std::optional<uint32_t> keyLevel(const Directory& directory);

}  // namespace zelkm_tool
