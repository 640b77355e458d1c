// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Captures the platform log. A test program that links this has its own __android_log_print.

#pragma once

#include <string>
#include <vector>

namespace test {

using Lines = std::vector<std::string>;

// The lines since the last clearLog(), e.g. "W object: no file edbk": a level (E, W or D), a source
// ("object" or "engine") and the message. A line is kept as "malformed: …" when it has another form
// or tag, or a prefix that does not fit its priority. An address in a message ("0x7f…") becomes
// "ADDR", or "LOWER" after a higher one.
Lines log();

// The lines of log() that are no debug lines.
Lines errors();

// Whether a line that is equal to `line` was logged.
bool logged(const std::string& line);

void clearLog();

}  // namespace test
