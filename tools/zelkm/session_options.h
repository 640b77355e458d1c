// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the whole command line shares, and what a command says beside its result.

#pragma once

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

namespace zelkm_tool {

struct SessionOptions {
    std::string dir = ".";
    std::optional<uint32_t> patch_level;  // of the software keymaster, YYYYMM
    bool upgrade = false;                 // let the library upgrade the store's key
    bool quiet = false;                   // nothing but what was asked for, and errors
    uint32_t wait = 5;                    // seconds, for another process to leave the directory
};

// A line on standard output that confirms what was done.
inline void confirm(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cout << line << '\n';
    }
}

// A line on standard error that is no failure.
inline void note(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cerr << "zelkm: " << line << '\n';
    }
}

}  // namespace zelkm_tool
