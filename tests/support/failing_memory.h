// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes allocations fail on demand: malloc, calloc and realloc of the objects linked into a
// program, with the linker's --wrap; the whole program's operator new, too, where failing_new.cpp
// is linked; libcrypto's with useFailingLibcryptoMemory(). More than 1 GiB is never there.

#pragma once

namespace test {

// Counts allocations from now on and makes the nth one fail; with `for_good`, all later ones too.
void failAllocation(long nth, bool for_good);

// Back to normal; true if an allocation failed since failAllocation().
bool stopFailing();

inline int allocations_paused = 0;

// While one lives, allocations neither fail nor count: for the parts of a test that play someone
// else.
class AllocationsWork {
  public:
    AllocationsWork() { ++allocations_paused; }
    ~AllocationsWork() { --allocations_paused; }
};

// The opposite, within one: the library's turn again.
class AllocationsFail {
  public:
    AllocationsFail() { --allocations_paused; }
    ~AllocationsFail() { ++allocations_paused; }
};

// Makes libcrypto allocate through the same counter. Must come before libcrypto's first allocation;
// false if it is too late.
bool useFailingLibcryptoMemory();

}  // namespace test
