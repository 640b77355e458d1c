// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The rolling error file "zelko_err.txt" in the working directory: at most 3 files of 10000 bytes.
// plog writes it.

#pragma once

namespace zelkm {

// Registers the error file once more: after n calls every line is written n times. No other thread
// may write meanwhile.
void setUpErrorFile();

// Writes the message "source(line) :text" at level 'E' (error) or 'W' (warning). Drops any other
// level, and all lines before setUpErrorFile().
void writeErrorFile(char level, const char* source, int line, const char* text);

}  // namespace zelkm
