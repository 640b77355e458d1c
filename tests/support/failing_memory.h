// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes allocations fail on demand. The linker's --wrap brings malloc, calloc and realloc of the
// objects in a program here. failing_new.cpp brings the program's operator new as well, and
// useFailingLibcryptoMemory() some of libcrypto's. An allocation of more than 1 GiB always
// fails.

#pragma once

#include <functional>

#include "fault_loop.h"

namespace test {

// Counts allocations from now on and makes the nth one fail. With `for_good` all later ones fail,
// too.
void failAllocation(long nth, bool for_good);

// Lets allocations succeed again. Returns whether one has failed since failAllocation().
bool stopFailing();

inline int allocations_paused = 0;

// While an object of this class lives, allocations neither fail nor count. It surrounds the parts
// of a test that are not the library.
class AllocationsWork {
  public:
    AllocationsWork() { ++allocations_paused; }
    ~AllocationsWork() { --allocations_paused; }
};

// While an object of this class lives inside the other one, it is the library's turn again.
class AllocationsFail {
  public:
    AllocationsFail() { --allocations_paused; }
    ~AllocationsFail() { ++allocations_paused; }
};

// One allocation of `action` after the other fails, and with `for_good` all later ones. Each time
// prepare() comes first, and verify() gets what the action returned. Returns how often that was.
inline int failEachAllocation(bool for_good, const std::function<void()>& prepare,
                              const std::function<int()>& action,
                              const std::function<void(int status, bool failed)>& verify) {
    const char* const what = for_good ? "all allocations from" : "allocation";
    return untilNothingFails(what, [&](long nth) {
        prepare();
        int status = 0;
        failAllocation(nth, for_good);
        EXPECT_NO_THROW(status = action());
        const bool failed = stopFailing();
        verify(status, failed);
        return failed;
    });
}

// Makes libcrypto allocate certificates through the same counter. Returns false when libcrypto has
// allocated already, or cannot be made to.
bool useFailingLibcryptoMemory();

}  // namespace test
