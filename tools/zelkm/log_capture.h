// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Keeps the library's errors in this process, so that a failed command can name its cause.

#pragma once

#include <string>

namespace zelkm_tool {

// From now on the library's errors are kept. Nothing of its log is printed, except a message that
// ends the process.
void captureLog();

// From now on the whole log is also printed to standard error. Escape sequences appear only on a
// terminal, and not when NO_COLOR is set in the environment.
void showLog();

// The cause that the errors since the last call tell, e.g. "the new version of a file could not be
// written: the disk is full (No space left on device)". Empty when there were no errors. The first
// error counts, because later ones follow from it; but the messages of a repair say more, and come
// before it.
std::string takeCause();

}  // namespace zelkm_tool
