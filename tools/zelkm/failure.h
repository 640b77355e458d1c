// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// How a command fails.

#pragma once

#include <iostream>
#include <stdexcept>
#include <string>

namespace zelkm_tool {

enum ExitStatus {
    kExitDone = 0,
    kExitRefused = 1,
    kExitWrongUsage = 2,
};

// The store, the keymaster, a file or a check refused. Exit status 1.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line cannot be carried out, and nothing was touched. Exit status 2.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Runs a command, and returns its exit status. Prints the text of a failure on standard error.
template <typename Command>
int exitStatusOf(Command command) {
    try {
        return command();
    } catch (const WrongUsage& error) {
        std::cerr << "zelkm: " << error.what() << '\n';
        return kExitWrongUsage;
    } catch (const std::exception& error) {
        std::cerr << "zelkm: " << error.what() << '\n';
        return kExitRefused;
    }
}

}  // namespace zelkm_tool
