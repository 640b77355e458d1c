// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The doctor's whole report, and how it is printed.

#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "doctor_diagnosis.h"
#include "doctor_log.h"

namespace zelkm_tool {

struct Report {
    Evidence evidence;
    Diagnosis diagnosis;
    std::vector<Finding> findings;  // of the diagnosis and of the log, the worst first
    std::vector<Moment> timeline;

    // What a repair has done. Both are empty without a repair.
    std::vector<Change> repaired;
    std::string copies;  // the folder with the files as they were before

    Verdict verdict() const { return verdictOf(findings); }
};

Report examine(const Evidence& evidence, StoreTrials* trials);

// A file's size, mode, owner and time, for people. JSON has them as "name", "kind", "size", "mode",
// "uid", "gid" and "modified".
std::string describe(const struct stat& status);
nlohmann::ordered_json describeJson(const std::string& name, const struct stat& status);

void printText(std::ostream& out, const Report& report, bool verdict_only);
void printJson(std::ostream& out, const Report& report);

}  // namespace zelkm_tool
