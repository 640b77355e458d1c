// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A new directory as the working directory, where the library keeps its files.

#pragma once

#include <string>

namespace keymaster_check {

// There may be one object at a time.
class PrivateDirectory {
  public:
    // Makes a directory and changes to it.
    PrivateDirectory();
    // Changes back to the directory before, and removes this one with the library's files.
    ~PrivateDirectory();
    PrivateDirectory(const PrivateDirectory&) = delete;
    PrivateDirectory& operator=(const PrivateDirectory&) = delete;

    // False when no directory could be made. The working directory is then unchanged.
    bool isThere() const { return before_ >= 0; }

    // Empty when the file cannot be read.
    std::string read(const char* name) const;
    bool write(const char* name, const std::string& content) const;

  private:
    int before_ = -1;  // descriptor of the working directory before
};

}  // namespace keymaster_check
