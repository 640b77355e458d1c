// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes allocations fail on demand. The linker's --wrap brings malloc, calloc and realloc of the
// objects in a program here. failing_new.cpp brings the program's operator new as well, and
// useFailingLibcryptoMemory() libcrypto's allocations. An allocation of more than 1 GiB always
// fails.

#pragma once

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

// Makes libcrypto allocate through the same counter. Returns false when libcrypto has allocated
// already, or cannot be made to.
bool useFailingLibcryptoMemory();

}  // namespace test
