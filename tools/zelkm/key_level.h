// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The patch level that a key of the software keymaster was made at, or upgraded to.

#pragma once

#include <string>

namespace zelkm_tool {

// Prints it for the key in a store directory, when there are one and the root key.
void printKeyLevel(const std::string& dir);

}  // namespace zelkm_tool
