// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The patch level that a key of the software keymaster was made at, or upgraded to.

#pragma once

#include <string>

#include "directory.h"

namespace zelkm_tool {

// The level in words, for the key in a store directory; empty without the key or the root key.
std::string keyLevel(const Directory& directory);

}  // namespace zelkm_tool
