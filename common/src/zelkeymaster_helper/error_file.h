// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The rolling error file "zelko_err.txt" in the working directory: 3 files of 10000 bytes at most,
// written with plog.

#pragma once

namespace zelkm {

// Registers the error file once more: after n calls every line is written n times. Must not run
// while another thread writes.
void setUpErrorFile();

// Writes one line: at level 'E' (error) or 'W' (warning), with the message "source(line) :text".
// Any other level, and any line before the first set-up, is dropped.
void writeErrorFile(char level, const char* source, int line, const char* text);

}  // namespace zelkm
