// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Command texts of the engine, run as they are.

#pragma once

#include <optional>
#include <string>

#include "session.h"

namespace zelkm_tool {

struct QueryOptions {
    std::string text;                 // one command; "-" reads them from standard input
    std::optional<std::string> file;  // one command a line
};

// Throws WrongUsage, or Refused at the first command that fails.
void runQueries(const SessionOptions& session, const QueryOptions& options);

}  // namespace zelkm_tool
