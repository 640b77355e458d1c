// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the checks, one after the other.

#include "keymaster_check/keymaster_check.h"

#include "checks.h"
#include "keymaster_check/report.h"

namespace keymaster_check {
namespace {

bool startsWith(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

bool isLeftOut(const std::string& id, const Options& options) {
    return (!options.attestation && (startsWith(id, "csr.") || startsWith(id, "attest."))) ||
           (!options.password && startsWith(id, "password.")) ||
           (options.largest_store == 0 && id == "gcm.sizes");
}

bool needsKey(const std::string& id) {
    return startsWith(id, "gcm.") || startsWith(id, "ops.") ||
           (startsWith(id, "key.") && id != "key.generate");
}

// Requirements that find out whether there is room for operations.
bool judgesRoom(const std::string& id) {
    return id == "ops.refused" || id == "ops.unfinished" || id == "password.unfinished";
}

std::string consequenceOf(const Requirement& requirement, const Outcome& outcome) {
    switch (outcome.verdict) {
        case Verdict::kHolds:
        case Verdict::kLeftOut:
            return "";
        case Verdict::kBroken:
            return outcome.consequence.empty() ? requirement.consequence : outcome.consequence;
        case Verdict::kNotOffered:
            return outcome.consequence.empty()
                       ? "the library's users get this code from the service; the others are not "
                         "affected"
                       : outcome.consequence;
        case Verdict::kNotTried:
            return std::string("not known; if it is broken: ") + requirement.consequence;
    }
    return "";
}

// The requirement's outcome, if none of the calls that it rests on was missing.
Outcome judged(const Entry& entry, Context& context) {
    if (isLeftOut(entry.requirement.id, context.options)) {
        return {Verdict::kLeftOut, "", "by the options"};
    }
    if (context.key.empty() && needsKey(entry.requirement.id)) {
        return notTried("there is no key: see key.generate");
    }
    const Outcome outcome = entry.check(context);
    if (!context.caller.missed().empty()) {
        return notTried(context.caller.missed());
    }
    const bool is_verdict =
        outcome.verdict == Verdict::kHolds ||
        (outcome.verdict == Verdict::kBroken && judgesRoom(entry.requirement.id));
    if (context.caller.foundNoRoom() && !is_verdict) {
        return notTried(
            "the keymaster has no room for another operation (-31 TOO_MANY_OPERATIONS): see "
            "ops.refused and ops.unfinished; restart the system before the next check");
    }
    context.lost_room = context.lost_room ||
                        (outcome.verdict == Verdict::kBroken && judgesRoom(entry.requirement.id));
    return outcome;
}

std::vector<Finding> findingsOf(const std::vector<Entry>& all, Context& context) {
    const Options& options = context.options;
    std::vector<Finding> findings;
    for (const Entry& entry : all) {
        if (options.progress) {
            options.progress(entry.requirement.id, findings.size(), all.size());
        }
        context.caller.startRequirement();
        const Outcome outcome = judged(entry, context);
        Finding finding = {entry.requirement.id,
                           outcome.verdict,
                           outcome.sent,
                           outcome.answered,
                           consequenceOf(entry.requirement, outcome),
                           outcome.note};
        const std::string slow = context.caller.endRequirement();
        if (!slow.empty()) {
            finding.note += (finding.note.empty() ? "slow: " : "; slow: ") + slow;
        }
        if (options.found) {
            options.found(finding);
        }
        findings.push_back(finding);
    }
    return findings;
}

}  // namespace

Outcome holds(const std::string& sent, const std::string& answered) {
    return {Verdict::kHolds, sent, answered};
}

Outcome broken(Context& context, const std::string& reason, const std::string& consequence) {
    return {Verdict::kBroken, context.caller.sent(), context.caller.answered() + ": " + reason,
            consequence};
}

Outcome notOffered(Context& context, const Answer& answer) {
    return {Verdict::kNotOffered, context.caller.sent(), describeCode(answer.error)};
}

Outcome notTried(const std::string& reason) {
    return {Verdict::kNotTried, "", reason};
}

std::vector<Finding> checkKeymaster(Keymaster& keymaster, const Options& options) {
    Caller caller(keymaster, options);
    Context context = {keymaster, options, caller};
    return findingsOf(entries(), context);
}

std::vector<Finding> verifyKey(Keymaster& keymaster, const std::string& saved,
                               const Options& options) {
    Caller caller(keymaster, options);
    Context context = {keymaster, options, caller};
    readSavedKey(saved, &context.saved);
    const std::vector<Finding> findings = findingsOf(laterEntries(), context);
    if (exitStatus(findings) != 3) {  // else one can try again
        caller.own(context.saved.key);
    }
    return findings;
}

}  // namespace keymaster_check
