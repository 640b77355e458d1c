// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Output files that appear complete and together, or not at all.

#pragma once

#include <list>
#include <string>
#include <vector>

#include "descriptor.h"
#include "files.h"

namespace zelkm_tool {

// The output files of a command. Each is written through the descriptor of the file that this
// object has made, so that nothing reaches a file that somebody else has put in its place.
class FreshFiles {
  public:
    // What happens to a file that is there. A key is never replaced.
    enum class Existing { kReplace, kRefuse };

    FreshFiles() = default;
    // Leaves everything as it was, unless commit() was called.
    ~FreshFiles();

    FreshFiles(const FreshFiles&) = delete;
    FreshFiles& operator=(const FreshFiles&) = delete;

    // Makes a temporary file beside `path`; "-" is standard output. Throws Refused when that fails,
    // or when `path` exists and is no regular file; nothing is written through a link.
    void add(const std::string& path, Access access, Existing existing = Existing::kReplace);
    // The same for a name in an open folder; `path` is for messages.
    void addIn(const Descriptor& folder, const std::string& name, const std::string& path,
               Access access, Existing existing = Existing::kReplace);

    // Writes the contents, in the order of the files, and gives all files their names. When one
    // step fails, every name is as it was before, and Refused is thrown.
    void commit(const std::vector<std::string>& contents);

  private:
    struct File {
        std::string path;
        std::string name;
        Existing existing;
        Descriptor folder;
        Descriptor file;
        std::string temporary;  // its name, until it is placed
        std::string aside;      // what the file that was there is called meanwhile
        bool placed = false;
    };

    static void place(File* file);
    static void takeBack(File* file);

    std::list<File> files_;
};

}  // namespace zelkm_tool
