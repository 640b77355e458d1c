// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What happened to a store directory, and what would put it right. Touches nothing: it is given the
// files, and a way to decrypt.

#pragma once

#include <string>
#include <vector>

#include "doctor_files.h"
#include "doctor_store.h"

namespace zelkm_tool {

struct Diagnosis {
    std::vector<std::string> files;     // the stores that need no other word, each in a line
    std::vector<std::string> notes;     // unusual, and harmless
    std::vector<std::string> problems;  // empty for a healthy directory
    std::vector<std::string> advice;    // for people, when nothing can be changed

    // In the order in which they are safe to make: a store appears after its key.
    std::vector<Change> changes;
};

// `decrypt` may be empty.
Diagnosis diagnose(const StoreFiles& files, const Decrypt& decrypt);

}  // namespace zelkm_tool
