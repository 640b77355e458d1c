// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Changes to a store directory, each file replaced at once and never without a copy of it. All is
// done within the directory, through its descriptor, and with files that are new.

#pragma once

#include <string>
#include <vector>

#include "doctor_facts.h"

namespace zelkm_tool {

// Throws Refused when a repair would leave files that the directory's owner cannot use, or touch
// somebody else's.
void requireOwnership(const Facts& facts, const std::vector<Change>& changes);

// Copies the files that the changes touch into a new folder, doctor-YYYYMMDD-HHMMSS, with their
// times, and returns its name. Throws Refused when that cannot be done completely.
std::string keepCopies(const Directory& directory, const Facts& facts,
                       const std::vector<Change>& changes);

// Makes the changes in their order. Throws Refused at the first one that fails.
void makeChanges(const Directory& directory, const std::vector<Change>& changes);

}  // namespace zelkm_tool
