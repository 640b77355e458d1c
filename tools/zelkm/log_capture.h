// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The library's platform log in this process: kept, so that a failure can tell its cause.

#pragma once

#include <string>

namespace zelkm_tool {

// From now on the library's errors are kept, and nothing of its log is printed but what ends the
// process.
void captureLog();

// From now on all of the log is also printed to standard error: with escape sequences only on a
// terminal, and not with NO_COLOR in the environment.
void showLog();

// What the errors kept since the last call tell as the cause, e.g. "the new version of a file could
// not be written: the disk is full (No space left on device)"; empty when there were none. The
// first one is the cause, those after it its consequences.
std::string takeCause();

}  // namespace zelkm_tool
