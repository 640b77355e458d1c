// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of requirements, with what a keymaster that breaks one does to the library's users; and
// the checks, one after the other.

#include "keymaster_check/keymaster_check.h"

#include "checks.h"
#include "keymaster_check/report.h"

namespace keymaster_check {
namespace {

// What a requirement needs, and what leaves it out.
enum Trait : unsigned {
    kNeedsKey = 1,
    kAttestation = 2,
    kPassword = 4,
    kLargestStore = 8,
    kJudgesRoom = 16,  // it finds out whether there is room for operations
};

// The function that tries a requirement.
struct Test {
    Finding (*check)(Context&);
    unsigned traits = 0;
    const char* service = "";  // a requirement; when it is not offered, neither is this one

    bool has(Trait trait) const { return (traits & trait) != 0; }
};

struct Entry {
    Requirement requirement;
    Test test;
};

// Those of checkKeymaster().
std::vector<Entry> entries() {
    return {
        {{"key.generate", "every insertion is refused with the keymaster's code"},
         {checkKeyGenerate}},
        {{"key.characteristics",
          "the stored key is refused at the next start, or is weaker than requested"},
         {checkKeyCharacteristics, kNeedsKey}},
        {{"key.damaged-blob",
          "a damaged key file is used as if it were whole, or is not replaced: only -33 starts "
          "that"},
         {checkKeyDamagedBlob, kNeedsKey}},
        {{"key.upgrade", "a key that needs an upgrade is lost, and the store with it"},
         {checkKeyUpgrade, kNeedsKey}},
        {{"gcm.nonce-length", "insertions return 0, and the next start refuses the store (-30)"},
         {checkNonceLength, kNeedsKey}},
        {{"gcm.nonce-fresh",
          "everything returns 0, but whoever reads two versions of the store file learns "
          "the objects and can forge them"},
         {checkNonceFresh, kNeedsKey}},
        {{"gcm.output-in-update",
          "insertions return 0 and leave the bytes held back on the disk as plaintext; after three "
          "starts the store is lost"},
         {checkOutputInUpdate, kNeedsKey}},
        {{"gcm.tag-in-finish",
          "insertions return 0, and the next start refuses the store (-30), or does not read it"},
         {checkTagInFinish, kNeedsKey}},
        {{"gcm.tag-checked",
          "a damaged or forged store is accepted as a good one, or is refused without the repair "
          "that only -30 starts"},
         {checkTagChecked, kNeedsKey}},
        {{"gcm.aad-checked",
          "a store whose format version was changed is read as if it were the other version"},
         {checkAadChecked, kNeedsKey}},
        {{"gcm.correct", "objects cannot be read back, or are stored readable for everybody"},
         {checkCorrect, kNeedsKey}},
        {{"gcm.sizes",
          "the insertion that exceeds the limit is refused; or, when the transport fails, it "
          "returns 0 and writes the whole store as plaintext marked as encrypted, which every "
          "later start refuses (-913 or -30)"},
         {checkSizes, kNeedsKey | kLargestStore}},
        {{"csr.request", "generateCSR returns 0 and leaves the caller's request unchanged"},
         {checkCsrRequest, kAttestation}},
        {{"csr.proof",
          "generateCSR returns a request that no authority accepts, or that asks for another "
          "key's certificate"},
         {checkCsrProof, kAttestation, "csr.request"}},
        {{"attest.chain", "validateAttestChain refuses the device's own chains (-30)"},
         {checkAttestChain, kAttestation}},
        {{"password.round-trip", "material converted once is lost"},
         {checkPasswordRoundTrip, kPassword}},
        {{"password.tag-checked", "damaged or forged material is converted as if it were whole"},
         {checkPasswordTagChecked, kPassword, "password.round-trip"}},
        {{"password.inputs-bound",
          "the material can be recovered without the input that should protect it"},
         {checkPasswordInputsBound, kPassword, "password.round-trip"}},
        {{"password.outputs",
          "the conversion fails (-40), or the caller gets 16 zero bytes instead of the rot value"},
         {checkPasswordOutputs, kPassword, "password.round-trip"}},
        {{"call.answered-once",
          "a late callback writes into memory that is used for something else; of two replies "
          "the last counts; a finish without one makes insertions return 0 and leaves store and "
          "backup as plaintext"},
         {checkAnsweredOnce}},
        {{"library.end-to-end", "stores do not work, or do not survive a restart of the service"},
         {checkEndToEnd}},
        {{"ops.unfinished",
          "after some damaged stores no operation can begin (-31), for the library and "
          "for other clients of the keymaster, until the system restarts"},
         {checkUnfinished, kNeedsKey | kJudgesRoom}},
        {{"password.unfinished",
          "after some conversions no operation can begin (-31), for the library and for "
          "other clients of the keymaster"},
         {checkPasswordUnfinished, kPassword | kJudgesRoom, "password.round-trip"}},
        {{"ops.refused",
          "after some refused calls no operation can begin (-31), for the library and for "
          "other clients of the keymaster, until the system restarts"},
         {checkRefused, kNeedsKey | kJudgesRoom}},
    };
}

// Those of verifyKey().
std::vector<Entry> laterEntries() {
    return {
        {{"later.key", "the store can no longer be read, and is lost"}, {checkLaterKey}},
        {{"later.nonces",
          "everything returns 0, but whoever reads two versions of the store file learns "
          "the objects and can forge them"},
         {checkLaterNonces}},
    };
}

std::vector<Requirement> requirementsOf(const std::vector<Entry>& all) {
    std::vector<Requirement> made;
    for (const Entry& entry : all) {
        made.push_back(entry.requirement);
    }
    return made;
}

bool isLeftOut(const Entry& entry, const Options& options) {
    return (!options.attestation && entry.test.has(kAttestation)) ||
           (!options.password && entry.test.has(kPassword)) ||
           (options.largest_store == 0 && entry.test.has(kLargestStore));
}

std::string consequenceOf(const Requirement& requirement, const Finding& finding) {
    switch (finding.verdict) {
        case Verdict::kBroken:
            return finding.consequence.empty() ? requirement.consequence : finding.consequence;
        case Verdict::kNotOffered:
            return "the library's users get this code from the service; the others are not "
                   "affected";
        case Verdict::kNotTried:
            return std::string("not known; if it is broken: ") + requirement.consequence;
        default:
            return "";
    }
}

// The requirement's outcome, if none of the calls that it rests on was missing.
Finding judged(const Entry& entry, Context& context) {
    if (isLeftOut(entry, context.options)) {
        return {"", Verdict::kLeftOut, "", "by the options"};
    }
    if (context.key.empty() && entry.test.has(kNeedsKey)) {
        return notTried("there is no key: see key.generate");
    }
    const Finding& related = context.outcomes[entry.test.service];
    if (related.verdict == Verdict::kNotOffered) {
        return related;
    }
    const Finding finding = context.outcomes[entry.requirement.id] = entry.test.check(context);
    if (!context.missed().empty()) {
        return notTried(context.missed());
    }
    const bool no_room = finding.verdict == Verdict::kBroken && entry.test.has(kJudgesRoom);
    if (context.foundNoRoom() && finding.verdict != Verdict::kHolds && !no_room) {
        return notTried(
            "the keymaster has no room for another operation (-31 TOO_MANY_OPERATIONS): see "
            "ops.refused and ops.unfinished; restart the system before the next check");
    }
    context.lost_room = context.lost_room || no_room;
    return finding;
}

std::vector<Finding> findingsOf(Context& context, const std::vector<Entry>& all) {
    const Options& options = context.options;
    std::vector<Finding> findings;
    for (const Entry& entry : all) {
        if (options.progress) {
            options.progress(entry.requirement.id, findings.size(), all.size());
        }
        context.startRequirement();
        Finding finding = judged(entry, context);
        finding.id = entry.requirement.id;
        finding.consequence = consequenceOf(entry.requirement, finding);
        const std::string slow = context.endRequirement();
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

Finding holds(const std::string& sent, const std::string& answered) {
    return {"", Verdict::kHolds, sent, answered};
}

Finding broken(Context& context, const std::string& reason, const std::string& consequence) {
    const std::string answered = context.answered() + ": " + reason;
    return {"", Verdict::kBroken, context.sent(), answered, consequence};
}

Finding notTried(const std::string& reason) {
    return {"", Verdict::kNotTried, "", reason};
}

Finding refusedOrBroken(Context& context, const Answer& answer, const std::string& reason,
                        const std::string& consequence) {
    if (!answer.arrived) {
        return broken(context, reason, consequence);
    }
    const std::string code = describeCode(answer.error);
    return {"", Verdict::kNotOffered, context.sent(), code};
}

std::vector<Requirement> requirements() {
    return requirementsOf(entries());
}

std::vector<Requirement> laterRequirements() {
    return requirementsOf(laterEntries());
}

std::vector<Finding> checkKeymaster(Keymaster& keymaster, const Options& options) {
    Context context(keymaster, options);
    return findingsOf(context, entries());
}

std::vector<Finding> verifyKey(Keymaster& keymaster, const std::string& saved,
                               const Options& options) {
    Context context(keymaster, options);
    context.saved = readSavedKey(saved);
    const std::vector<Finding> findings = findingsOf(context, laterEntries());
    if (exitStatus(findings) != 3) {  // else one can try again
        context.own(context.saved.key);
    }
    return findings;
}

}  // namespace keymaster_check
