// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// From the evidence to the doctor's report: what the files show (doctor_diagnosis.cpp), what the
// error files say (doctor_log.cpp), and how all this is printed (doctor_report.cpp).

#pragma once

#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "doctor_evidence.h"
#include "doctor_findings.h"
#include "doctor_store.h"

namespace zelkm_tool {

// A file that a repair replaces. Without a content, a file that it removes.
struct Change {
    std::string file;
    std::optional<std::string> content;
    std::string why;  // "from edbk.bak", "not needed any more"
};

// The files as they are after the changes.
StoreFiles applied(StoreFiles files, const std::vector<Change>& changes);

struct Diagnosis {
    std::vector<Finding> findings;                 // in a report also those of the log, worst first
    std::map<std::string, StoreReading> readings;  // of the versions of the store
    // What puts it right, in the order in which it is safe: the key comes before its store. It was
    // tried in memory, by the library where there is a key.
    std::vector<Change> changes;
    bool decrypted = false;  // the current store, with the current key
};

// From the evidence alone.
Diagnosis diagnose(const Evidence& evidence, KeyTrials* trials);

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

struct Report {
    Evidence evidence;
    Diagnosis diagnosis;
    std::vector<Moment> timeline;

    // What a repair has done. Both are empty without a repair.
    std::vector<Change> repaired;
    std::string copies;  // the folder with the files as they were before

    Verdict verdict() const { return verdictOf(diagnosis.findings); }
};

Report examine(const Evidence& evidence, KeyTrials* trials);

// A file's size, mode, owner and time, for people. JSON has them as "name", "kind", "size", "mode",
// "uid", "gid" and "modified".
std::string describe(const struct stat& status);
nlohmann::ordered_json describeJson(const std::string& name, const struct stat& status);

void printText(std::ostream& out, const Report& report, bool verdict_only);
void printJson(std::ostream& out, const Report& report);

}  // namespace zelkm_tool
