// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Small files that are read whole and replaced whole, so that a crash never leaves half a version.
//
// Replacing file N, with the files that are there after each step. "old" is the version before,
// "older" the one before that. At a restart a reader opens N and nothing else.
//
//   step                      N      N.bak    N.tmp       at restart
//   (before)                  old    older    -           old
//   1 write and flush N.tmp   old    older    new (part)  old
//   2 remove N.bak            old    -        new         old
//   3 rename N to N.bak       -      old      new         none: old is in N.bak, new in N.tmp
//   4 remove N (not there)    -      old      new         none, as above
//   5 rename N.tmp to N       new    old      -           new
//   6 flush the directory     new    old      -           new
//
// A process that is killed leaves the files of one of these rows. So does a power cut, on a file
// system that keeps the order of renames: the data of N.tmp is flushed before it gets its name.
// Nobody notices when an old file is put back in place.
//
// update_file() makes these steps in this order. It logs their failures, as load_data() and
// restoreBackupDB() do. Nothing is logged here: an operation returns false when its call failed,
// with the error number in *error.

#pragma once

#include <cstddef>
#include <cstdint>

namespace zelkm {

// A file's name with a suffix. A result of more than 254 bytes is cut.
class CompanionName {
  public:
    CompanionName(const char* path, const char* suffix);
    const char* get() const { return name_; }

  private:
    char name_[256];
};

// An open file. The destructor closes it.
class File {
  public:
    static File forReading(const char* path, int* error);
    // Makes the file, or empties it.
    static File forWriting(const char* path, int* error);

    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File();

    bool isOpen() const { return fd_ >= 0; }

    // The file's size modulo 2^32.
    [[nodiscard]] bool takeSize(uint32_t* size, int* error) const;

    // Read and write all bytes in one call. A smaller count is a failure, and its error number may
    // be 0.
    [[nodiscard]] bool read(uint8_t* data, uint32_t len, int* error) const;
    [[nodiscard]] bool write(const uint8_t* data, uint32_t len, int* error) const;

    // Brings the content to the device, as far as that works.
    void flush() const;

  private:
    File(const char* path, int flags, int* error);

    int fd_;
};

[[nodiscard]] bool removeFile(const char* path, int* error);
[[nodiscard]] bool renameFile(const char* from, const char* to, int* error);

// Brings the working directory's entries to the device, as far as that works.
void flushDirectory();

}  // namespace zelkm
