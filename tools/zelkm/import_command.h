// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Many objects at once, from a file.

#pragma once

#include <string>

#include "session.h"

namespace zelkm_tool {

struct ImportOptions {
    std::string file;         // "-" is standard input
    bool keep_going = false;  // leave out what cannot be stored
    bool as_is = false;       // as from an export: also what 'add' refuses for its own sake
};

// Checks all objects, and then stores one after the other. Throws Refused when some were not
// stored: it says which, and how many were.
void importObjects(const SessionOptions& session, const ImportOptions& options);

}  // namespace zelkm_tool
