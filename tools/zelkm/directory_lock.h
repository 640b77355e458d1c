// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One process at a time in a store directory. The library keeps the whole store in memory and
// replaces the file, and its backup, on every change: two writers would lose each other's objects,
// and both files with them.

#pragma once

#include <string>

#include "session_options.h"

namespace zelkm_tool {

// An advisory lock on the directory itself: it leaves no file behind, and the system takes it back
// when the process ends, however it ends. Programs that use the library without this tool do not
// ask for it.
class DirectoryLock {
  public:
    enum class Mode {
        kShared,     // for reading without the library
        kExclusive,  // for everything else: the library repairs the store when it only reads it
    };

    // Waits for the lock as long as the options say, with a word on standard error, and throws
    // Refused with the process that holds it; or when there is no such directory. On a file system
    // without locks it only says so.
    DirectoryLock(const SessionOptions& options, Mode mode);
    ~DirectoryLock();

    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

  private:
    const int directory_;
};

}  // namespace zelkm_tool
