// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Pages that are made from the definition of the command line, and so never differ from it.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace zelkm_tool {

// A page for man(1), in roff.
std::string manPage(const CLI::App& app);

// A completion script for bash. It completes commands, options, and file names as values.
std::string bashCompletion(const CLI::App& app);

}  // namespace zelkm_tool
