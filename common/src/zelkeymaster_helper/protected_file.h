// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Small files that are read whole and replaced whole, so that a crash never leaves half a version.
//
// Replacing file N, and the files present after each step. "old" is the version before, "older" the
// one before that; a reader at restart opens N and nothing else.
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
// A killed process leaves one of these rows. So does a power cut, on a file system that keeps the
// order of renames: the data of N.tmp is flushed before it gets its name. Putting an old file back
// in place is not detected.
//
// The order of the steps stands where their messages are, in load_data(), update_file() and
// restoreBackupDB(). Nothing is logged here: each operation answers false when its call failed,
// with the error number in *error.

#pragma once

#include <cstddef>
#include <cstdint>

namespace zelkm {

// A file's name with a suffix, together at most 254 bytes: what is longer is cut.
class CompanionName {
  public:
    CompanionName(const char* path, const char* suffix);
    const char* get() const { return name_; }

  private:
    char name_[256];
};

// An open file, closed at the end of its life.
class File {
  public:
    static File forReading(const char* path, int* error);
    // Makes the file, or empties it.
    static File forWriting(const char* path, int* error);

    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File();

    bool isOpen() const { return fd_ >= 0; }

    // The size modulo 2^32.
    [[nodiscard]] bool takeSize(uint32_t* size, int* error) const;

    // All bytes in one call. A count that falls short is a failure, whose number may be 0.
    [[nodiscard]] bool read(uint8_t* data, uint32_t len, int* error) const;
    [[nodiscard]] bool write(const uint8_t* data, uint32_t len, int* error) const;

    // Brings the content to the device as far as that works.
    void flush() const;

  private:
    File(const char* path, int flags, int* error);

    int fd_;
};

[[nodiscard]] bool removeFile(const char* path, int* error);
[[nodiscard]] bool renameFile(const char* from, const char* to, int* error);

// Brings the working directory's entries to the device as far as that works.
void flushDirectory();

}  // namespace zelkm
