// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What every benchmark needs around it: the state of the process and its heap, the loops that
// measure, and how a benchmark is registered.

#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sample_rows.h"

namespace bench {

using benchmark::State;

// A figure for an operation that does not do its work is worthless: the process ends.
inline void check(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(what);
    }
}

// Runs a program's work in a new directory below the current one, which is removed at the end.
// Returns the exit status.
int runApart(const std::function<void()>& work);

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
         std::function<void(State&)> run);

void addEngineBenchmarks();
void addObjectBenchmarks();

// A sample with the number of rows that is being measured.
inline Sample sampleOf(const State& state) {
    return Sample(static_cast<size_t>(state.range(0)));
}

// Measures `operation` alone: `before` and `after` it, the table is put right.
template <typename Before, typename Operation, typename After>
void timeEach(State& state, Before before, Operation operation, After after) {
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

// Measures inserts of a row that the store does not have, or removals of rows that are scattered
// over all of them. The clock stands while the change is undone; a row that was removed comes back
// at the end of the store.
template <typename Store>
void timeChanges(State& state, const Sample& sample, Store& store, bool removing) {
    const auto insert = [&] { store.insert(); };
    const auto remove = [&] { store.remove(); };
    store.choose(sample.extra);
    if (removing) {
        uint64_t step = 0;
        const auto choose = [&] { store.choose(sample.rows[sample.pick(step++)]); };
        timeEach(state, choose, remove, insert);
    } else {
        const auto choose = [] {};  // the same row every time
        timeEach(state, choose, insert, remove);
    }
    const size_t count = sample.rows.size();
    check(store.count() == count, "rows");
    store.choose(sample.extra);
    store.insert();
    check(store.count() == count + 1, "inserted row");
    store.remove();
    check(store.count() == count, "removed row");
}

// Measures `select`, which appends its texts; returns the last ones. A first one is not measured:
// it may make the index.
template <typename Select>
Texts timeSelect(State& state, Select select) {
    Texts texts;
    select(&texts);
    for ([[maybe_unused]] auto _ : state) {
        texts.clear();
        select(&texts);
        benchmark::DoNotOptimize(texts.data());
    }
    return texts;
}

// Measures selects of single rows, scattered over all of them. `prepare` makes what `select` takes
// from a row; the clock runs for `select` alone.
template <typename Prepare, typename Select>
void timeProbes(State& state, const Sample& sample, Prepare prepare, Select select) {
    std::vector<decltype(prepare(sample.extra))> probes;
    for (uint64_t step = 0; step < kProbes; ++step) {
        probes.push_back(prepare(sample.rows[sample.pick(step)]));
    }
    size_t next = 0;
    const Texts texts =
        timeSelect(state, [&](Texts* found) { select(probes[next++ % kProbes], found); });
    const Row& last = sample.rows[sample.pick((next - 1) % kProbes)];
    check(!texts.empty() && texts[0] == encodeRow(last), "row");
}

}  // namespace bench
