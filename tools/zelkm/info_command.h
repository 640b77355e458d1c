// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory, without a key and without the library.

#pragma once

#include <string>

namespace zelkm_tool {

// Prints it, as text or as one JSON object. Throws Refused when the directory cannot be read.
void printInfo(const std::string& dir, bool json);

}  // namespace zelkm_tool
