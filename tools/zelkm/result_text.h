// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Keeps the errors that the library logs in this process, and puts the result of a call into words,
// with its cause.

#pragma once

#include <string>

namespace zelkm_tool {

// From now on the library's errors are kept. Nothing of its log is printed, except a message that
// ends the process.
void captureLog();

// From now on the whole log is also printed to standard error. Escape sequences appear only on a
// terminal, and not when NO_COLOR is set in the environment.
void showLog();

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// "<what>: <code and meaning>: <cause>". The cause comes from what the library logged during the
// call; it is left out when nothing was logged.
std::string failureText(int code, const std::string& what);

// Throws Refused with the failure's text unless the code is 0. A call that logged an error and
// still returned 0 is reported on standard error.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
