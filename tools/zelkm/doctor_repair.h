// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Changes to a store directory. Each file is replaced in one step, and only after a copy of it was
// kept. Everything is done through the directory's descriptor, with newly made files.

#pragma once

#include <string>
#include <vector>

#include "doctor_facts.h"

namespace zelkm_tool {

// Throws Refused when the directory, or a file that the changes touch, belongs to another user.
void requireOwnership(const Facts& facts, const std::vector<Change>& changes);

// Copies the files that the changes touch into a new folder, doctor-YYYYMMDD-HHMMSS, and keeps
// their times. Returns the folder's name. Throws Refused when a copy fails.
std::string keepCopies(const Directory& directory, const Facts& facts,
                       const std::vector<Change>& changes);

// Makes the changes in their order. Throws Refused at the first one that fails.
void makeChanges(const Directory& directory, const std::vector<Change>& changes);

}  // namespace zelkm_tool
