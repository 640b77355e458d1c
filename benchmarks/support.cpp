// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "support.h"

#include <android/log.h>
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <utility>
#include <vector>

namespace bench {
namespace {

constexpr int64_t kRowCounts[] = {10, 100, 1000, 10000, 100000};

}  // namespace

void silenceLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
}

WorkDirectory::WorkDirectory() : outside_(std::filesystem::current_path()) {
    std::string pattern = outside_ + "/run-XXXXXX";
    check(mkdtemp(pattern.data()) != nullptr && chdir(pattern.c_str()) == 0, "work directory");
    path_ = pattern;
}

WorkDirectory::~WorkDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(outside_, ignored);
    std::filesystem::remove_all(path_, ignored);
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
         std::function<void(benchmark::State&)> run) {
    benchmark::internal::Benchmark* added =
        benchmark::RegisterBenchmark((subject + "/" + side).c_str(), std::move(run));
    for (const int64_t count : kRowCounts) {
        added->Arg(count);
    }
    added->Unit(benchmark::kMicrosecond);
    if (timing == Timing::kEach) {
        added->UseManualTime();
    } else {
        added->UseRealTime();
    }
}

}  // namespace bench
