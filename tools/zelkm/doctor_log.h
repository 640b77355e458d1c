// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the error files in a store directory say about it.

#pragma once

#include <string>
#include <vector>

#include "doctor_evidence.h"
#include "doctor_findings.h"

namespace zelkm_tool {

// An event of the log, in words.
struct Moment {
    std::string time;
    std::string where;  // "zelko_err.txt:12"
    std::string what;
};

struct LogEvidence {
    std::vector<Finding> findings;  // each kind once, with its last event
    std::vector<Moment> timeline;   // in the order of the files
};

LogEvidence readErrorFiles(const Evidence& evidence);

}  // namespace zelkm_tool
