// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory, without a key and without the library.

#pragma once

#include <string>

namespace zelkm_tool {

// Prints it. Throws Refused when there is no such directory.
void printInfo(const std::string& dir);

}  // namespace zelkm_tool
