// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The system calls of the file storage. The library touches files only through these pointers.
// Tests replace some to make calls fail. Benchmarks replace `flush` to leave it out.

#pragma once

#include <fcntl.h>
#include <sys/types.h>

namespace zelkm {

struct FileCalls {
    int (*open)(const char* path, int flags, mode_t mode);
    off_t (*lseek)(int fd, off_t offset, int whence);
    ssize_t (*read)(int fd, void* data, size_t len);
    ssize_t (*write)(int fd, const void* data, size_t len);
    int (*close)(int fd);
    int (*rename)(const char* from, const char* to);
    int (*unlink)(const char* path);

    // Brings a file's data to the device, or the directory's entries for kWorkingDirectory. It has
    // no result: after a failed flush there is nothing better to do than to go on.
    void (*flush)(int fd);
};

inline constexpr int kWorkingDirectory = AT_FDCWD;

extern FileCalls g_file_calls;

}  // namespace zelkm
