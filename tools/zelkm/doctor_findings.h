// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the doctor has to say about a store directory, whoever reads it.

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
    kUnchecked,  // nobody can tell from here
    kNote,       // harmless, or a hint that proves nothing
};

struct Finding {
    std::string name;  // e.g. "store-refused"; docs/diagnostics.md lists them
    Severity severity;
    std::string what;   // happened
    std::string proof;  // by what this is known
    std::string lost;   // what is lost by it, and what is not
    std::string needs;  // what would have to be known to do something, or why nothing is to be done
    std::vector<Change> changes = {};  // what puts it right, each proved to be safe
};
using Findings = std::vector<Finding>;

// Of the store, its key and its digest, with their companions.
struct Diagnosis {
    Findings findings;
    std::map<std::string, StoreReading> readings;  // of the versions of the store
    std::vector<std::string> checked;              // in words
    bool decrypted;                                // the current store, with the current key
};

// What the keymaster says to a key blob; empty when none can be tried.
using KeyStatus = std::function<int(const std::string&)>;

Diagnosis diagnose(const StoreFiles& files, const Decrypt& decrypt, const KeyStatus& key_status);

// Of kinds, sizes, modes, owners, times and names. Times are hints: no finding of theirs is more
// than a note. `times_kept`: whether the files have their own times, if that is known.
Findings lookAround(const Facts& facts, std::optional<bool> times_kept);

// The changes of all findings, in the order in which they are safe to make: the store appears after
// its key. No file is named twice.
std::vector<Change> changesOf(const Findings& findings);

enum class Verdict { kHealthy = 0, kWrong = 1, kNotDecided = 3 };  // the exit statuses
Verdict verdictOf(const Findings& findings);

}  // namespace zelkm_tool
