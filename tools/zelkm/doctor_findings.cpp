// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_findings.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "pages.h"

namespace zelkm_tool {
namespace {

constexpr const char* kSeverities[] = {"wrong", "not checked", "note"};

std::vector<FindingKind> readKinds() {
    std::vector<FindingKind> kinds;
    for (const PageRow& row :
         tableRows(kDoctorPage, "| name | severity | meaning | what to do |")) {
        const auto* const severity =
            std::find(std::begin(kSeverities), std::end(kSeverities), row.cells[1]);
        if (severity == std::end(kSeverities)) {
            throw std::logic_error("no severity " + row.cells[1]);
        }
        kinds.push_back({withoutBackticks(row.cells[0]),
                         static_cast<Severity>(severity - std::begin(kSeverities)), row.cells[2],
                         row.cells[3]});
    }
    return kinds;
}

}  // namespace

const std::vector<FindingKind>& findingKinds() {
    static const std::vector<FindingKind> kinds = readKinds();
    return kinds;
}

const FindingKind& Finding::kind() const {
    const auto found = std::find_if(findingKinds().begin(), findingKinds().end(),
                                    [this](const FindingKind& kind) { return kind.name == name; });
    if (found == findingKinds().end()) {
        throw std::logic_error("no finding " + name);
    }
    return *found;
}

const char* describe(Severity severity) {
    return kSeverities[static_cast<size_t>(severity)];
}

Verdict verdictOf(const std::vector<Finding>& findings) {
    const auto has = [&findings](Severity severity) {
        return std::any_of(findings.begin(), findings.end(), [severity](const Finding& finding) {
            return finding.kind().severity == severity;
        });
    };
    return has(Severity::kWrong)        ? Verdict::kWrong
           : has(Severity::kNotChecked) ? Verdict::kNotDecided
                                        : Verdict::kHealthy;
}

}  // namespace zelkm_tool
