// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "support.h"

#include <android/log.h>
#include <malloc.h>
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <utility>

namespace bench {

int runApart(const std::function<void()>& work) {
    // liblog is still called: debug lines cost what they cost on a device, where it drops them too.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    const std::filesystem::path outside = std::filesystem::current_path();
    std::string inside = outside / "run-XXXXXX";
    int status = 1;
    try {
        check(mkdtemp(inside.data()) != nullptr, "work directory");
        std::filesystem::current_path(inside);
        work();
        status = 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "benchmarks: %s\n", error.what());
    }
    std::error_code ignored;
    std::filesystem::current_path(outside, ignored);
    std::filesystem::remove_all(inside, ignored);
    return status;
}

void ageHeap() {
    constexpr size_t kBlocks = 400000;
    std::mt19937_64 random(7);
    static std::vector<void*> blocks;  // what is not released stays until the process ends
    for (size_t i = 0; i < kBlocks; ++i) {
        blocks.push_back(std::malloc(16 + random() % 240));
    }
    for (size_t i = 0; i < kBlocks / 2; ++i) {
        std::swap(blocks[i], blocks[i + random() % (kBlocks - i)]);
        std::free(std::exchange(blocks[i], nullptr));
    }
    mergeFreeBlocks();
}

void mergeFreeBlocks() {
    constexpr size_t kMergingSize = 64 * 1024;         // from here on malloc() merges first
    void* volatile block = std::malloc(kMergingSize);  // else compilers leave the pair out
    std::free(block);
}

void keepPages() {
    constexpr int kLargest = 32 * 1024 * 1024;
    check(mallopt(M_MMAP_THRESHOLD, kLargest) == 1 && mallopt(M_TRIM_THRESHOLD, 8 * kLargest) == 1,
          "mallopt");
}

void add(const std::string& subject, const char* side, Timing timing,
         std::function<void(State&)> run) {
    benchmark::internal::Benchmark* added =
        benchmark::RegisterBenchmark((subject + "/" + side).c_str(), std::move(run));
    for (const int64_t rows : {10, 100, 1000, 10000}) {
        added->Arg(rows);
    }
    added->Unit(benchmark::kMicrosecond);
    if (timing == Timing::kEach) {
        added->UseManualTime();
    } else {
        added->UseRealTime();
    }
}

}  // namespace bench
