// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "file_calls.h"

#include <stdio.h>
#include <unistd.h>

namespace zelkm {
namespace {

int openFile(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}

void flushToDevice(int fd) {
    if (fd != kWorkingDirectory) {
        static_cast<void>(::fdatasync(fd));
        return;
    }
    const int directory = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        static_cast<void>(::fsync(directory));
        ::close(directory);
    }
}

}  // namespace

FileCalls g_file_calls = {openFile, ::lseek,  ::read,   ::write,
                          ::close,  ::rename, ::unlink, flushToDevice};

}  // namespace zelkm
