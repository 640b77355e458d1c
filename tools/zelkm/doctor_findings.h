// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the doctor finds in a store directory, without the words of its report.

#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "doctor_facts.h"
#include "doctor_store.h"

namespace zelkm_tool {

enum class Severity {
    kWrong,      // the directory is not as the library leaves it
    kUnchecked,  // this cannot be decided with what is here
    kNote,       // harmless, or a hint that proves nothing
};

struct Finding {
    std::string name;  // e.g. "store-refused"; docs/doctor.md lists them
    Severity severity;
    std::string what;   // what happened
    std::string proof;  // what shows it
    std::string lost;   // what is lost, and what is not
    std::string needs;  // what must be known before anything is done, or why nothing is
    std::vector<Change> changes = {};  // the changes that put it right, each proved to be safe
};
using Findings = std::vector<Finding>;

// The diagnosis of the store, its key and its digest, with their backups and temporary files.
struct Diagnosis {
    Findings findings;
    std::map<std::string, StoreReading> readings;  // of the versions of the store
    std::vector<std::string> checked;              // in words
    bool decrypted;                                // the current store, with the current key
};

// What the keymaster answers to a key blob; an empty function when no key can be tried.
using KeyStatus = std::function<int(const std::string&)>;

Diagnosis diagnose(const StoreFiles& files, const Decrypt& decrypt, const KeyStatus& key_status);

// Findings about kinds, sizes, modes, owners, times and names. Times are hints: a finding about
// them is never more than a note. `times_kept` tells whether the files have their own times, as far
// as that is known.
Findings lookAround(const Facts& facts, std::optional<bool> times_kept);

// The changes of all findings, in the order in which they are safe: the key comes before its store.
// No file is named twice.
std::vector<Change> changesOf(const Findings& findings);

enum class Verdict { kHealthy = 0, kWrong = 1, kNotDecided = 3 };  // the exit statuses
Verdict verdictOf(const Findings& findings);

}  // namespace zelkm_tool
