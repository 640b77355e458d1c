// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Puts the result of a library call into words.

#pragma once

#include <string>

namespace zelkm_tool {

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// "<what>: <code and meaning>: <cause>". The cause comes from what the library logged during the
// call; it is left out when nothing was logged.
std::string failureText(int code, const std::string& what);

// Throws Refused with the failure's text unless the code is 0. A call that logged an error and
// still returned 0 is reported on standard error.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
