// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the error files in a store directory tell about it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor_findings.h"

namespace zelkm_tool {

// Something that happened: an event of the log, or a file's modification.
struct Moment {
    int64_t micros;     // in the log's local time, as if that were UTC
    std::string time;   // in words
    std::string where;  // "zelko_err.txt:12", or the name of a file
    std::string what;
};

struct LogEvidence {
    Findings findings;
    std::vector<Moment> timeline;      // in order of time; files only when their times are real
    std::optional<bool> times_kept;    // whether the files have their own times; if that shows
    std::vector<std::string> checked;  // in words
};

// `decrypted`: the store was found to be whole, so that what is told is the past.
LogEvidence readErrorFiles(const Facts& facts, bool decrypted);

}  // namespace zelkm_tool
