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

// Prints a failure as one line, whatever names it has in it.
inline void printFailure(const std::exception& error) {
    std::string text = error.what();
    for (size_t at; (at = text.find('\n')) != text.npos;) {
        text.replace(at, 1, "\\x0a");
    }
    std::cerr << "zelkm: " << text << '\n';
}

// Runs a command, and returns its exit status. Prints the text of a failure on standard error.
template <typename Command>
int exitStatusOf(Command command) {
    try {
        return command();
    } catch (const WrongUsage& error) {
        printFailure(error);
        return kExitWrongUsage;
    } catch (const std::exception& error) {
        printFailure(error);
        return kExitRefused;
    }
}

}  // namespace zelkm_tool
