// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// An output file that appears complete, or not at all.

#pragma once

#include <string>

namespace zelkm_tool {

// The output file. The constructor already finds out whether it can be written. "-" is standard
// output.
class FreshFile {
  public:
    // Makes a temporary file beside `path`, for its owner only. Throws Refused when that fails, or
    // when `path` exists and is no regular file; nothing is written through a link.
    explicit FreshFile(const std::string& path);
    // Leaves `path` as it was, unless commit() was called.
    ~FreshFile();

    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;

    // Writes the content to the temporary file. Throws Refused.
    void write(const std::string& content);

    // Renames the temporary file to `path`, which may exist. Throws Refused.
    void commit();

  private:
    const std::string path_;
    std::string temporary_;  // empty for standard output, and after commit()
};

}  // namespace zelkm_tool
