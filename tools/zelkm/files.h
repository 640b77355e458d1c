// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Whole files as byte strings.

#pragma once

#include <string>

namespace zelkm_tool {

// All that is left to read; `path` is for messages. Throws Refused, also beyond kMaxFileLen.
std::string readAll(int fd, const std::string& path);

// Writes everything. Throws Refused.
void writeAll(int fd, const std::string& content, const std::string& path);

// The content of a file, or of standard input for "-". Throws Refused.
std::string readInput(const std::string& path);

enum class Access { kOwnerOnly, kEverybody };

// Writes a file, or standard output for "-". Throws Refused. A file that is there is replaced, and
// keeps its access rights.
void writeOutput(const std::string& path, const std::string& content, Access access);

}  // namespace zelkm_tool
