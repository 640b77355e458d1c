// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Files that do not fit into memory. For one source file of a program that is linked with
// --wrap=malloc.

#pragma once

#include <cstddef>

#include "file_faults.h"

extern "C" {

void* __real_malloc(size_t size);

// Allocations beyond 1 GiB fail.
void* __wrap_malloc(size_t size) {
    return size <= size_t{1} << 30 ? __real_malloc(size) : nullptr;
}

}  // extern "C"

namespace test {

// While one lives, every file seems to have 4 GiB.
class FilesTooLarge {
  public:
    FilesTooLarge() { faults_.answer("lseek end", 0xFFFFFFFFL, 0); }

  private:
    FileFaults faults_;
};

}  // namespace test
