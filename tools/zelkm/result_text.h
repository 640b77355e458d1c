// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What a call of the library answered, in words.

#pragma once

#include <string>

namespace zelkm_tool {

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// "<what>: <code and meaning>: <cause>", with the cause that the library's log of the call tells;
// without it when it tells none.
std::string failureText(int code, const std::string& what);

// Throws Refused with the failure's text unless the code is 0. A call that logged an error, and
// succeeded all the same, is told on standard error.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
