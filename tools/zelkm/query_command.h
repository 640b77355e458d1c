// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs command texts of the engine unchanged.

#pragma once

#include <optional>
#include <string>

#include "session.h"

namespace zelkm_tool {

struct QueryOptions {
    std::string text;                 // one command; "-" reads them from standard input
    std::optional<std::string> file;  // a file with one command in each line
};

// Throws WrongUsage, or Refused at the first command that fails.
void runQueries(const SessionOptions& session, const QueryOptions& options);

}  // namespace zelkm_tool
