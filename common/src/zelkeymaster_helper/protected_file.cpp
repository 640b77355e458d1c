// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "protected_file.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include "file_calls.h"

namespace zelkm {
namespace {

constexpr mode_t kPrivateMode = 0600;

// Whether a call transferred all of `len` bytes. `count` is its result. errno was 0 before the
// call, because a count that falls short need not set it.
bool isWhole(ssize_t count, uint32_t len, int* error) {
    *error = errno;
    return count == static_cast<ssize_t>(len);
}

}  // namespace

CompanionName::CompanionName(const char* path, const char* suffix) {
    snprintf(name_, sizeof(name_) - 1, "%s%s", path, suffix);
}

File::File(const char* path, int flags, int* error)
    : fd_(g_file_calls.open(path, flags | O_CLOEXEC, kPrivateMode)) {
    *error = isOpen() ? 0 : errno;
}

File File::forReading(const char* path, int* error) {
    return File(path, O_RDONLY, error);
}

File File::forWriting(const char* path, int* error) {
    return File(path, O_WRONLY | O_CREAT | O_TRUNC, error);
}

File::~File() {
    if (isOpen()) {
        g_file_calls.close(fd_);
    }
}

bool File::takeSize(uint32_t* size, int* error) const {
    const off_t end = g_file_calls.lseek(fd_, 0, SEEK_END);
    if (end < 0 || g_file_calls.lseek(fd_, 0, SEEK_SET) < 0) {
        *error = errno;
        return false;
    }
    *size = static_cast<uint32_t>(end);
    return true;
}

bool File::read(uint8_t* data, uint32_t len, int* error) const {
    errno = 0;
    return isWhole(g_file_calls.read(fd_, data, len), len, error);
}

bool File::write(const uint8_t* data, uint32_t len, int* error) const {
    errno = 0;
    return isWhole(g_file_calls.write(fd_, data, len), len, error);
}

void File::flush() const {
    g_file_calls.flush(fd_);
}

bool removeFile(const char* path, int* error) {
    *error = g_file_calls.unlink(path) == 0 ? 0 : errno;
    return *error == 0;
}

bool renameFile(const char* from, const char* to, int* error) {
    *error = g_file_calls.rename(from, to) == 0 ? 0 : errno;
    return *error == 0;
}

void flushDirectory() {
    g_file_calls.flush(kWorkingDirectory);
}

}  // namespace zelkm
