// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One process at a time in a store directory. The library keeps the whole store in memory, and each
// change replaces the file and its backup. Two writers would lose each other's objects, and could
// lose both files.

#pragma once

#include "directory.h"
#include "session_options.h"

namespace zelkm_tool {

// An advisory lock on the directory itself. It leaves no file behind, and the system releases it
// when the process ends, in whatever way. Programs that use the library without this tool do not
// take it. Whoever may read the directory can take it, too, and keep this tool waiting.
class DirectoryLock {
  public:
    enum class Mode {
        kShared,     // for readers that do not use the library
        kExclusive,  // for everything else: even a read through the library may repair the store
    };

    // Locks the directory through its descriptor, which must outlive the lock. Waits as long as the
    // options say, and says so on standard error. Then throws Refused, which names the process that
    // holds the lock. On a file system without locks it prints a note and goes on.
    DirectoryLock(const Directory& directory, const SessionOptions& options, Mode mode);
    ~DirectoryLock();

    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

  private:
    const int directory_;
};

}  // namespace zelkm_tool
