// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What every benchmark needs around it: a private directory, the state of the heap, and how one is
// registered.

#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

#include "sample_rows.h"

namespace bench {

// A figure for an operation that does not do its work is worthless: the process ends.
inline void check(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(what);
    }
}

// Lets liblog drop every line. It is still called: debug lines cost what they cost on a device,
// where it drops them as well.
void silenceLog();

// A new directory below the current one, which becomes the current one. Removed at the end.
class WorkDirectory {
  public:
    WorkDirectory();
    ~WorkDirectory();
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;

  private:
    std::string outside_;
    std::string path_;
};

// Fragments the heap as a long-lived process does: some 50 MB of small blocks, of which a random
// half is released. Where the holes lie is the same in every run.
void ageHeap();

// Merges the free blocks that an earlier table left, so that the next one is laid out as in a new
// process.
void mergeFreeBlocks();

// Keeps the heap's free pages in the process from now on. Where the same memory is allocated and
// released in every turn, the kernel's part would else be the largest, and differ from run to run.
void keepPages();

enum class Timing {
    kLoop,  // the state's loop is measured
    kEach,  // timeEach() measures
};

// Registers "subject/side" for each number of rows; see sampleOf().
void add(const std::string& subject, const char* side, Timing timing,
         std::function<void(benchmark::State&)> run);

// The number of rows that is being measured, and a sample of that size.
inline size_t rowsOf(const benchmark::State& state) {
    return static_cast<size_t>(state.range(0));
}
inline Sample sampleOf(const benchmark::State& state) {
    return Sample(rowsOf(state));
}

// Measures `operation` alone: `before` and `after` it, the table is put right.
template <typename Before, typename Operation, typename After>
void timeEach(benchmark::State& state, Before before, Operation operation, After after) {
    using Clock = std::chrono::steady_clock;
    for ([[maybe_unused]] auto _ : state) {
        before();
        const Clock::time_point start = Clock::now();
        operation();
        const Clock::time_point end = Clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
        after();
    }
}

}  // namespace bench
