// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that says what is wrong with a store directory, and repairs what it can prove.

#pragma once

#include "session.h"

namespace zelkm_tool {

struct DoctorOptions {
    bool repair = false;
    bool json = false;
};

// Examines the directory of `session` and, when asked to, repairs it. Returns the exit status.
// Throws WrongUsage when the directory cannot be read, and Refused when a repair fails.
int runDoctor(const SessionOptions& session, const DoctorOptions& options);

}  // namespace zelkm_tool
