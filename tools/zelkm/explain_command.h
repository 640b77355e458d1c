// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Explains a result code, a message of the library, or a log: what it means, its cause, and what to
// do.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

struct ExplainOptions {
    std::vector<std::string> what;  // one code or one text; or the files of a log
    bool all = false;               // print every message and code instead
    bool json = false;
};

void explain(const ExplainOptions& options);

}  // namespace zelkm_tool
