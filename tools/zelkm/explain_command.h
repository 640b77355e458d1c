// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What a result code, a message of the library, or a log means, why it is there, and what to do.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

struct ExplainOptions {
    std::vector<std::string> what;  // one code or text, or the files of one log
    bool all = false;               // every message and code instead
};

void explain(const ExplainOptions& options);

}  // namespace zelkm_tool
