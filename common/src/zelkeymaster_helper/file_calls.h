// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The system calls of the file storage: the one point through which the library touches files.
// Tests replace pointers to make calls fail; benchmarks replace `flush` to leave it out.

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

    // Brings a file's data, or with kWorkingDirectory the directory's entries, to the device. Has
    // no result: a replacement that could not be flushed is still the best that can be had.
    void (*flush)(int fd);
};

inline constexpr int kWorkingDirectory = AT_FDCWD;

extern FileCalls g_file_calls;

}  // namespace zelkm
