// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes the changes of a diagnosis. Each file is replaced in one step, and only after a copy of it
// was kept. Everything is done through the directory's descriptor, with newly made files.

#pragma once

#include <string>
#include <vector>

#include "doctor_diagnosis.h"

namespace zelkm_tool {

// Makes the changes in their order. Before, copies the files that they touch into a new folder,
// doctor-YYYYMMDD-HHMMSS, with their times, and returns its name. Throws Refused when the
// directory, or a file that the changes touch, belongs to another user, and at the first step that
// fails.
std::string repair(const Directory& directory, const Evidence& evidence,
                   const std::vector<Change>& changes);

}  // namespace zelkm_tool
