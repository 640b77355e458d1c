// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Changes to a store directory, each file replaced at once and never without a copy of it.

#pragma once

#include <string>
#include <vector>

#include "doctor_files.h"

namespace zelkm_tool {

// Copies the files that the changes touch into a new directory, doctor-YYYYMMDD-HHMMSS in `dir`,
// and returns its name. Throws Refused when that cannot be done completely.
std::string keepCopies(const std::string& dir, const StoreFiles& files,
                       const std::vector<Change>& changes);

// Makes the changes in their order. Throws Refused at the first one that fails.
void makeChanges(const std::string& dir, const std::vector<Change>& changes);

}  // namespace zelkm_tool
