// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes large allocations fail.

#pragma once

#include <sys/resource.h>

#include "file_faults.h"

#if defined(__SANITIZE_ADDRESS__)
#define ZELKM_TEST_WITH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZELKM_TEST_WITH_ASAN 1
#endif
#endif

#ifdef ZELKM_TEST_WITH_ASAN
// The sanitizer has its own limit; its mappings exceed any that the system could set.
extern "C" __attribute__((used, weak)) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1024";
}
#endif

namespace test {

// While one lives, an allocation of more than 1 GiB fails, and every file seems to have 4 GiB: it
// cannot be loaded for want of memory.
class FilesTooLarge {
  public:
    FilesTooLarge() {
        faults_.answer("lseek end", 0xFFFFFFFFL, 0);
#ifndef ZELKM_TEST_WITH_ASAN
        ::getrlimit(RLIMIT_AS, &before_);
        rlimit limit = before_;
        limit.rlim_cur = 1UL << 30;
        ::setrlimit(RLIMIT_AS, &limit);
#endif
    }
    ~FilesTooLarge() {
#ifndef ZELKM_TEST_WITH_ASAN
        ::setrlimit(RLIMIT_AS, &before_);
#endif
    }
    FilesTooLarge(const FilesTooLarge&) = delete;
    FilesTooLarge& operator=(const FilesTooLarge&) = delete;

  private:
    FileFaults faults_;
#ifndef ZELKM_TEST_WITH_ASAN
    rlimit before_ = {};
#endif
};

}  // namespace test
