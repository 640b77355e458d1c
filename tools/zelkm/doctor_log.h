// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the error files in a store directory say about it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor_findings.h"

namespace zelkm_tool {

// One point of the timeline: an event of the log, or the last change of a file.
struct Moment {
    int64_t micros;     // in the log's local time, as if that were UTC
    std::string time;   // in words
    std::string where;  // "zelko_err.txt:12", or the name of a file
    std::string what;
};

struct LogEvidence {
    Findings findings;
    std::vector<Moment> timeline;      // in order of time; files only if their times are their own
    std::optional<bool> times_kept;    // whether the files have their own times; empty if unknown
    std::vector<std::string> checked;  // in words
};

// `decrypted`: the store was found to be whole. Losses that the log reports are then past, and
// become notes.
LogEvidence readErrorFiles(const Facts& facts, bool decrypted);

}  // namespace zelkm_tool
