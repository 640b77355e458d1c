// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs files through a fuzz target, once each: the seeds, in the normal test run.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files;
        for (const auto& file : std::filesystem::directory_iterator(argv[i])) {
            files.push_back(file.path());
        }
        std::sort(files.begin(), files.end());
        for (const auto& path : files) {
            std::ifstream in(path, std::ios::binary);
            const std::vector<char> data((std::istreambuf_iterator<char>(in)), {});
            std::printf("%s\n", path.filename().c_str());
            std::fflush(stdout);
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(data.data()), data.size());
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count == 0 ? 1 : 0;  // a folder without seeds is a mistake
}
