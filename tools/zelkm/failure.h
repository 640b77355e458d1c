// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// How a command ends early. main() turns each into one line on standard error and an exit status.

#pragma once

#include <stdexcept>
#include <string>

namespace zelkm_tool {

enum ExitStatus {
    kExitDone = 0,
    kExitRefused = 1,
    kExitWrongUsage = 2,
};

// The store, the keymaster, a file or a check of what was found said no. Status 1.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line alone is enough to say no; nothing was touched. Status 2.
struct WrongUsage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace zelkm_tool
