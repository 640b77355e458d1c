// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Stores many objects at once, from a file.

#pragma once

#include <string>

#include "session.h"

namespace zelkm_tool {

struct ImportOptions {
    std::string file;         // "-" is standard input
    bool keep_going = false;  // leave out objects that cannot be stored, and store the others
    bool as_is = false;       // also store what 'add' refuses without --as-is
};

// Checks all objects first, and then stores one after the other. Throws Refused when some were not
// stored. Its text says which ones, and how many were stored.
void importObjects(const SessionOptions& session, const ImportOptions& options);

}  // namespace zelkm_tool
