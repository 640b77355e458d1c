// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_findings.h"

#include <algorithm>

#include "session.h"

namespace zelkm_tool {

std::vector<Change> changesOf(const Findings& findings) {
    std::vector<Change> all;
    for (const Finding& finding : findings) {
        for (const Change& change : finding.changes) {
            const bool known = std::any_of(all.begin(), all.end(), [&](const Change& other) {
                return other.file == change.file;
            });
            if (!known) {
                all.push_back(change);
            }
        }
    }
    const auto rank = [](const Change& change) {
        if (!change.content) {
            return 3;
        }
        return change.file == kKeyFile ? 0 : change.file == kKeyDigestFile ? 1 : 2;
    };
    std::stable_sort(all.begin(), all.end(),
                     [&](const Change& a, const Change& b) { return rank(a) < rank(b); });
    return all;
}

Verdict verdictOf(const Findings& findings) {
    Verdict verdict = Verdict::kHealthy;
    for (const Finding& finding : findings) {
        if (finding.severity == Severity::kWrong) {
            return Verdict::kWrong;
        }
        if (finding.severity == Severity::kUnchecked) {
            verdict = Verdict::kNotDecided;
        }
    }
    return verdict;
}

}  // namespace zelkm_tool
