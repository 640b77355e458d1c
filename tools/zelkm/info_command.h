// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Shows what lies in a store directory. It needs no key, and does not use the library.

#pragma once

#include "directory.h"

namespace zelkm_tool {

// Prints the directory's content, as text or as one JSON object. Throws Refused when the directory
// cannot be read.
void printInfo(const Directory& directory, bool json);

}  // namespace zelkm_tool
