// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A directory whose files are not trusted: somebody else may have made them, and may be changing
// them. The object holds the directory open, and reaches files through its descriptor only. It
// follows no link, reads nothing but regular files, and reads none that is larger than a sensible
// store.

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
    // Throws Refused when the directory cannot be opened.
    explicit Directory(const std::string& path);

    const std::string& path() const { return path_; }
    int fd() const { return fd_.get(); }
    struct stat status() const;

    // The names of all entries, sorted.
    std::vector<std::string> names() const;

    // The status of the entry itself, not of the file that a link leads to. Nothing when there is
    // no such entry.
    std::optional<struct stat> look(const std::string& name) const;

    // Opens a regular file within the limit for reading. Nothing when there is no such entry.
    // Throws Refused with the name and the reason for anything else.
    std::optional<Descriptor> open(const std::string& name) const;

    // The content of a file that open() accepts.
    std::optional<std::string> read(const std::string& name) const;

    // Opens a directory inside this one. Throws Refused.
    Directory folder(const std::string& name) const;

  private:
    Directory(const std::string& path, int fd);

    std::string path_;
    Descriptor fd_;
};

// Makes a process of root act as the directory's owner, for good, when that is another user: the
// process can then do no more than the owner could. Does nothing in any other process. Throws
// Refused.
void becomeOwnerOf(const Directory& directory);

}  // namespace zelkm_tool
