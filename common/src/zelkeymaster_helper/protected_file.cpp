// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Small files that are read and replaced whole. See protected_file.h.

#include "protected_file.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <utility>

#include "file_calls.h"

namespace zelkm {
namespace {

constexpr mode_t kPrivateMode = 0600;

// A file's name with a suffix.
class CompanionName {
  public:
    CompanionName(const char* path, const char* suffix) {
        snprintf(name_, sizeof(name_) - 1, "%s%s", path, suffix);
    }
    const char* get() const { return name_; }

  private:
    char name_[256];
};

class File {
  public:
    File(const char* path, int flags) : fd_(file_calls.open(path, flags, kPrivateMode)) {}
    ~File() {
        if (isOpen()) {
            file_calls.close(fd_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }

  private:
    int fd_;
};

bool removeFile(const char* path, int* error) {
    *error = file_calls.unlink(path) == 0 ? 0 : errno;
    return *error == 0;
}

bool renameFile(const char* from, const char* to, int* error) {
    *error = file_calls.rename(from, to) == 0 ? 0 : errno;
    return *error == 0;
}

}  // namespace

ReadOutcome readWholeFile(const char* path) {
    const File file(path, O_RDONLY | O_CLOEXEC);
    if (!file.isOpen()) {
        return {ReadOutcome::kCannotOpen, errno, nullptr, 0};
    }
    const off_t size = file_calls.lseek(file.fd(), 0, SEEK_END);
    if (size < 0 || file_calls.lseek(file.fd(), 0, SEEK_SET) < 0) {
        return {ReadOutcome::kCannotRead, errno, nullptr, 0};
    }
    const uint32_t len = static_cast<uint32_t>(size);
    if (len == 0) {
        return {ReadOutcome::kOk, 0, nullptr, 0};
    }
    MallocBuffer data = allocateBuffer(len);
    if (data == nullptr) {
        return {ReadOutcome::kNoMemory, 0, nullptr, 0};
    }
    errno = 0;  // a count that falls short need not set it
    const ssize_t count = file_calls.read(file.fd(), data.get(), len);
    if (count != static_cast<ssize_t>(len)) {
        return {ReadOutcome::kCannotRead, errno, nullptr, 0};
    }
    return {ReadOutcome::kOk, 0, std::move(data), len};
}

ReplaceOutcome replaceFile(const char* path, const uint8_t* data, uint32_t len) {
    ReplaceOutcome outcome = {};
    const auto failedAt = [&outcome](ReplaceOutcome::Step step, int error) {
        outcome.failed = step;
        outcome.error = error;
        return outcome;
    };
    const CompanionName temporary(path, ".tmp");
    {
        const File file(temporary.get(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
        if (!file.isOpen()) {
            return failedAt(ReplaceOutcome::kOpen, errno);
        }
        errno = 0;  // a count that falls short need not set it
        const ssize_t count = file_calls.write(file.fd(), data, len);
        if (count != static_cast<ssize_t>(len)) {
            return failedAt(ReplaceOutcome::kWrite, errno);
        }
        file_calls.flush(file.fd());
    }

    int error = 0;
    const CompanionName backup(path, ".bak");
    if (!removeFile(backup.get(), &error) && error != ENOENT) {
        outcome.remove_backup_error = error;
    }
    if (!renameFile(path, backup.get(), &error) && error != ENOENT) {
        outcome.keep_backup_error = error;
    }
    if (!removeFile(path, &error) && error != ENOENT) {
        return failedAt(ReplaceOutcome::kRemoveCurrent, error);
    }
    if (!renameFile(temporary.get(), path, &error)) {
        return failedAt(ReplaceOutcome::kMoveIntoPlace, error);
    }
    file_calls.flush(kWorkingDirectory);
    return outcome;
}

RestoreOutcome restoreBackup(const char* path) {
    RestoreOutcome outcome = {};
    if (!removeFile(path, &outcome.error)) {
        if (outcome.error != ENOENT) {
            outcome.failed = RestoreOutcome::kRemoveCurrent;
            return outcome;
        }
        outcome.was_missing = true;
    }
    const CompanionName backup(path, ".bak");
    if (!renameFile(backup.get(), path, &outcome.error)) {
        outcome.failed = RestoreOutcome::kMoveIntoPlace;
    } else {
        file_calls.flush(kWorkingDirectory);
    }
    return outcome;
}

}  // namespace zelkm
