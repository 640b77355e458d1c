// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Captures the platform log: linking this replaces __android_log_print in the test program.

#pragma once

#include <string>
#include <vector>

namespace test {

using Lines = std::vector<std::string>;

// The lines since the last clearLog(), each as "<level> <source>: <message>" with level E, W or D
// and source "object" or "engine", e.g. "W object: no file edbk". A line in any other form, under
// another tag, or with a prefix that does not fit its priority is kept as "malformed: …". Addresses
// in messages ("0x7f…") become "ADDR", or "LOWER" after a higher one.
Lines log();

// The same without debug lines.
Lines errors();

// Whether a line that is equal to `line` was logged.
bool logged(const std::string& line);

void clearLog();

}  // namespace test
