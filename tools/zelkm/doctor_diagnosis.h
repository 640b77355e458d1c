// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The diagnosis of a store directory, from the evidence alone.

#pragma once

#include <map>
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
    std::vector<Finding> findings;
    std::map<std::string, StoreReading> readings;  // of the versions of the store
    // What puts it right, in the order in which it is safe: the key comes before its store. It was
    // tried in memory, by the library where there is a key.
    std::vector<Change> changes;
    bool decrypted = false;  // the current store, with the current key
};

Diagnosis diagnose(const Evidence& evidence, StoreTrials* trials);

}  // namespace zelkm_tool
