// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A directory whose files somebody else may have put there, and may be changing. It is held open,
// and its files are reached through it alone: no link is followed, nothing that is not a regular
// file is opened for good, and nothing larger than a store can sensibly be is read.

#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "descriptor.h"

namespace zelkm_tool {

// No file of a store directory may be larger: 64 MiB, some hundred thousand objects.
inline constexpr uint64_t kMaxFileLen = 64 << 20;

// What a file is, in words: "a regular file", "a link", ...
const char* kindOf(const struct stat& status);

class Directory {
  public:
    // Throws Refused when it cannot be opened.
    explicit Directory(const std::string& path);

    const std::string& path() const { return path_; }
    int fd() const { return fd_.get(); }
    struct stat status() const;

    // All names in it, sorted.
    std::vector<std::string> names() const;

    // Of the entry itself, not of what a link leads to; nothing when there is none.
    std::optional<struct stat> look(const std::string& name) const;

    // A regular file within the limit, open for reading; nothing when there is none. Throws Refused
    // with the name and the reason for anything else.
    std::optional<Descriptor> open(const std::string& name) const;

    // The content of such a file.
    std::optional<std::string> read(const std::string& name) const;

    // A directory in this one. Throws Refused.
    Directory folder(const std::string& name) const;

  private:
    Directory(const std::string& path, int fd);

    std::string path_;
    Descriptor fd_;
};

// Where root would work on a directory of somebody else, the process becomes that somebody, for
// good: what they could not have done by themselves is not done for them. Throws Refused.
void becomeOwnerOf(const Directory& directory);

}  // namespace zelkm_tool
