// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Whole files as byte strings.

#pragma once

#include <optional>
#include <string>

namespace zelkm_tool {

// The content, or nothing when there is no such file. Throws Refused for anything else that cannot
// be read, directories included.
std::optional<std::string> readFileIfThere(const std::string& path);

// The content of a file, or of standard input for "-". Throws Refused.
std::string readInput(const std::string& path);

enum class Access { kOwnerOnly, kEverybody };

// Writes a file, or standard output for "-". Throws Refused. A file that is there is replaced, and
// keeps its access rights.
void writeOutput(const std::string& path, const std::string& content, Access access);

}  // namespace zelkm_tool
