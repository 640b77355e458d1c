// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads and writes whole files.

#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "descriptor.h"

namespace zelkm_tool {

// Reads the rest of an open file piece by piece. `path` is for messages. Throws Refused.
void readPieces(int fd, const std::string& path, const std::function<void(std::string_view)>& take);

// Reads the rest of an open file. `path` is for messages. Throws Refused, also for more than
// kMaxFileLen bytes.
std::string readAll(int fd, const std::string& path);

// Writes all of `content`. Throws Refused.
void writeAll(int fd, const std::string& content, const std::string& path);

// Opens a file, or standard input for "-". Throws Refused.
Descriptor openInput(const std::string& path);

// The content of a file, or of standard input for "-". Throws Refused.
std::string readInput(const std::string& path);

enum class Access { kOwnerOnly, kEverybody };

// Writes a file, or standard output for "-". Throws Refused. An existing file gets the new content,
// and keeps its access rights.
void writeOutput(const std::string& path, const std::string& content, Access access);

}  // namespace zelkm_tool
