// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The patch level at which a key of the software keymaster was made or last upgraded.

#pragma once

#include <string>

#include "directory.h"

namespace zelkm_tool {

// The level of the key in a store directory, in words. Empty when the key or the root key is
// missing.
std::string keyLevel(const Directory& directory);

}  // namespace zelkm_tool
