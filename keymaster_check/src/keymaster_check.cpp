// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the checks, one after the other.

#include "keymaster_check/keymaster_check.h"

#include "checks.h"

namespace keymaster_check {
namespace {

using Check = Outcome (*)(Context&);

// The checks, in the order of requirements().
constexpr Check kChecks[] = {
    checkKeyGenerate,
    checkKeyCharacteristics,
    checkKeyDamagedBlob,
    checkNonceLength,
    checkNonceFresh,
    checkOutputInUpdate,
    checkTagInFinish,
    checkTagChecked,
    checkAadChecked,
    checkCorrect,
    checkSizes,
    checkUnfinished,
    checkCsrRequest,
    checkCsrProof,
    checkAttestChain,
    checkPasswordRoundTrip,
    checkPasswordTagChecked,
    checkPasswordInputsBound,
    checkPasswordOutputs,
    checkPasswordUnfinished,
    checkAnsweredOnce,
    checkEndToEnd,
};

bool startsWith(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

bool isSwitchedOff(const std::string& id, const Options& options) {
    return (!options.attestation && (startsWith(id, "csr.") || startsWith(id, "attest."))) ||
           (!options.password && startsWith(id, "password."));
}

std::string consequenceOf(const Requirement& requirement, Verdict verdict) {
    switch (verdict) {
        case Verdict::kHolds:
            return "";
        case Verdict::kBroken:
            return requirement.consequence;
        case Verdict::kNotOffered:
            return "the library's users get this code from the service; the others are not "
                   "affected";
        case Verdict::kNotTried:
            return std::string("not known; if it is broken: ") + requirement.consequence;
    }
    return "";
}

}  // namespace

Outcome holds(const std::string& sent, const std::string& answered) {
    return {Verdict::kHolds, sent, answered};
}

Outcome broken(Context& context, const std::string& reason) {
    return {Verdict::kBroken, context.caller.sent(), context.caller.answered() + ": " + reason};
}

Outcome notOffered(Context& context, const Answer& answer) {
    return {Verdict::kNotOffered, context.caller.sent(), codeInWords(answer.error)};
}

Outcome notTried(const std::string& reason) {
    return {Verdict::kNotTried, "", reason};
}

std::vector<Finding> checkKeymaster(Keymaster& keymaster, const Options& options) {
    const std::vector<Requirement>& all = requirements();
    Caller caller(keymaster);
    // NOLINTNEXTLINE(misc-const-correctness): the checks that kChecks holds write to it
    Context context = {keymaster, options, caller};
    std::vector<Finding> findings;
    for (const Requirement& requirement : all) {
        if (options.progress) {
            options.progress(requirement.id, findings.size(), all.size());
        }
        caller.startRequirement();
        const Outcome outcome = isSwitchedOff(requirement.id, options)
                                    ? notTried("switched off")
                                    : kChecks[findings.size()](context);
        Finding finding = {requirement.id, outcome.verdict, outcome.sent, outcome.answered,
                           consequenceOf(requirement, outcome.verdict)};
        const std::string slow = caller.endRequirement();
        if (!slow.empty()) {
            finding.answered += "; slow: " + slow;
        }
        findings.push_back(finding);
    }
    return findings;
}

}  // namespace keymaster_check
