// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Result codes in words.

#pragma once

#include <string>

namespace zelkm_tool {

// The code and its meaning, e.g. "-914 stale table handle".
std::string resultText(int code);

// Throws Refused with "<what>: <code and meaning>" unless the code is 0.
void check(int code, const std::string& what);

}  // namespace zelkm_tool
