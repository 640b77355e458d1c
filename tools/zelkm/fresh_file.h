// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A file that is there as a whole or not at all.

#pragma once

#include <string>

namespace zelkm_tool {

// An output that is known to be writable before there is anything to write. "-" is standard output.
class FreshFile {
  public:
    // Makes a new file beside `path`, for its owner only. Throws Refused when that cannot be, or
    // when `path` is there and no ordinary file: nothing is written through a link.
    explicit FreshFile(const std::string& path);
    // Leaves `path` as it was, unless commit() was called.
    ~FreshFile();

    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;

    // Writes all of the file, so that only commit() is left. Throws Refused.
    void write(const std::string& content);

    // Puts it at `path`, in the place of a file that is there. Throws Refused.
    void commit();

  private:
    const std::string path_;
    std::string temporary_;  // empty for standard output, and after commit()
};

}  // namespace zelkm_tool
