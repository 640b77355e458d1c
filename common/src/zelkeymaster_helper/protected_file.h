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
// Nothing is logged here: outcomes come back as values, with the error number of each failed call.

#pragma once

#include <cstdint>

#include "malloc_buffer.h"

namespace zelkm {

struct ReadOutcome {
    enum Result {
        kOk,          // also for an empty file: data is then null, len 0
        kCannotOpen,  // usually: there is no such file
        kCannotRead,
        kNoMemory,
    };
    Result result;
    int error;  // the number of the failed call, for kCannotRead
    MallocBuffer data;
    uint32_t len;
};

// Reads a file whole. A size beyond 32 bits is taken modulo 2^32.
[[nodiscard]] ReadOutcome readWholeFile(const char* path);

struct ReplaceOutcome {
    enum Step { kNone, kOpen, kWrite, kRemoveCurrent, kMoveIntoPlace };
    Step failed;  // the step that ended the replacement
    int error;    // its error number

    // Failures that did not stop the replacement; 0 for none.
    int remove_backup_error;
    int keep_backup_error;
};

// Replaces a file. `len` must not be 0. Names that are longer than 254 bytes with their suffix are
// cut.
[[nodiscard]] ReplaceOutcome replaceFile(const char* path, const uint8_t* data, uint32_t len);

struct RestoreOutcome {
    enum Step { kNone, kRemoveCurrent, kMoveIntoPlace };
    Step failed;
    int error;         // its error number
    bool was_missing;  // there was no current file
};

// Puts a file's backup in its place. The current file is removed first, whether or not there is a
// backup.
[[nodiscard]] RestoreOutcome restoreBackup(const char* path);

}  // namespace zelkm
