// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The options that all commands have, and what a command prints besides its result.

#pragma once

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

namespace zelkm_tool {

struct SessionOptions {
    std::string dir = ".";
    std::optional<uint32_t> patch_level;  // of the software keymaster, YYYYMM
    bool upgrade = false;                 // allow the library to upgrade the store's key
    bool quiet = false;                   // print only results and errors
    uint32_t wait = 5;                    // seconds, until another process leaves the directory
};

// Prints a line on standard output that confirms what was done. Nothing with --quiet.
inline void confirm(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cout << line << '\n';
    }
}

// Prints a line on standard error that is no failure. Nothing with --quiet.
inline void note(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cerr << "zelkm: " << line << '\n';
    }
}

}  // namespace zelkm_tool
