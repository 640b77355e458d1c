// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the doctor can find. The names, and what they mean, stand in docs/doctor.md.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

enum class Severity {
    kWrong,       // the directory is not as the library leaves it
    kNotChecked,  // this cannot be decided with what is here
    kNote,        // harmless
};

struct FindingKind {
    std::string name;
    Severity severity;
    std::string meaning;  // sentences
    std::string advice;   // what to do, where --repair does not
};

// In the order of the page.
const std::vector<FindingKind>& findingKinds();

// "wrong", "not checked" or "note".
const char* describe(Severity severity);

struct Finding {
    std::string name;   // one that the page has
    std::string file;   // the file that it is about; empty for the directory
    std::string proof;  // what shows it

    // Throws std::logic_error for a name that the page does not have.
    const FindingKind& kind() const;
};

enum class Verdict { kHealthy = 0, kWrong = 1, kNotDecided = 3 };  // the exit statuses
Verdict verdictOf(const std::vector<Finding>& findings);

}  // namespace zelkm_tool
