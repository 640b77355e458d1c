// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What is made from the definition of the command line, so that it never differs from it.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace zelkm_tool {

// A page for man(1), in its language.
std::string manPage(const CLI::App& app);

// A script for bash that completes commands and options, and files where they are expected.
std::string bashCompletion(const CLI::App& app);

}  // namespace zelkm_tool
