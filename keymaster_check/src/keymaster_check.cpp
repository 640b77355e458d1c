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
        {{"key.generate", "generateKey makes a key from the seven parameters of the database key",
          "every insertion is refused with the keymaster's code"},
         {checkKeyGenerate}},
        {{"key.characteristics",
          "getKeyCharacteristics returns 0 for a fresh blob, and lists what the key was made with",
          "the stored key is refused at the next start, or is weaker than requested"},
         {checkKeyCharacteristics, kNeedsKey}},
        {{"key.damaged-blob",
          "getKeyCharacteristics and begin refuse a damaged blob with exactly -33, unless it is "
          "still the same key",
          "a damaged key file is used as if it were whole, or is not replaced: only -33 starts "
          "that"},
         {checkKeyDamagedBlob, kNeedsKey}},
        {{"key.upgrade",
          "upgradeKey returns no blob for a fresh key, or one that opens what the old blob "
          "encrypted",
          "a key that needs an upgrade is lost, and the store with it"},
         {checkKeyUpgrade, kNeedsKey}},
        {{"gcm.nonce-length", "begin of an encryption returns one NONCE of exactly 12 bytes",
          "insertions return 0, and the next start refuses the store (-30)"},
         {checkNonceLength, kNeedsKey}},
        {{"gcm.nonce-fresh", "no nonce is used twice with one key",
          "everything returns 0, but whoever reads two versions of the store file learns "
          "the objects and can forge them"},
         {checkNonceFresh, kNeedsKey}},
        {{"gcm.output-in-update",
          "update returns as many bytes as the payload has, and leaves none for finish",
          "insertions return 0 and leave the bytes held back on the disk as plaintext; after three "
          "starts the store is lost"},
         {checkOutputInUpdate, kNeedsKey}},
        {{"gcm.tag-in-finish",
          "finish returns exactly the 16 bytes of the tag when encrypting, and never 16 bytes "
          "when decrypting",
          "insertions return 0, and the next start refuses the store (-30), or does not read it"},
         {checkTagInFinish, kNeedsKey}},
        {{"gcm.tag-checked",
          "a decryption with another tag, ciphertext or nonce ends with exactly -30 from finish",
          "a damaged or forged store is accepted as a good one, or is refused without the repair "
          "that only -30 starts"},
         {checkTagChecked, kNeedsKey}},
        {{"gcm.aad-checked",
          "a decryption with other associated data, or without, ends with exactly -30 from finish",
          "a store whose format version was changed is read as if it were the other version"},
         {checkAadChecked, kNeedsKey}},
        {{"gcm.correct",
          "the result is AES-256-GCM's, and what was encrypted decrypts, in any order and however "
          "it is split",
          "objects cannot be read back, or are stored readable for everybody"},
         {checkCorrect, kNeedsKey}},
        {{"gcm.sizes", "payloads of every size up to the largest requested get through, both ways",
          "the insertion that exceeds the limit is refused; or, when the transport fails, it "
          "returns 0 and writes the whole store as plaintext marked as encrypted, which every "
          "later start refuses (-913 or -30)"},
         {checkSizes, kNeedsKey | kLargestStore}},
        {{"csr.request", "attestKey with the tag 0x70000899 returns 0 and exactly one blob",
          "generateCSR returns 0 and leaves the caller's request unchanged"},
         {checkCsrRequest, kAttestation}},
        {{"csr.proof",
          "the request is PKCS #10, its signature verifies, and its key is the attested one",
          "generateCSR returns a request that no authority accepts, or that asks for another "
          "key's certificate"},
         {checkCsrProof, kAttestation, "csr.request"}},
        {{"attest.chain",
          "attestKey returns three certificates or more, which validateAttestChain accepts",
          "validateAttestChain refuses the device's own chains (-30)"},
         {checkAttestChain, kAttestation}},
        {{"password.round-trip", "purpose 102 returns the material that purpose 101 was given",
          "material converted once is lost"},
         {checkPasswordRoundTrip, kPassword}},
        {{"password.tag-checked",
          "purpose 102 refuses a tag other than the one that purpose 101 returned",
          "damaged or forged material is converted as if it were whole"},
         {checkPasswordTagChecked, kPassword, "password.round-trip"}},
        {{"password.inputs-bound",
          "purpose 102 does not return the material if any of the four inputs is altered",
          "the material can be recovered without the input that should protect it"},
         {checkPasswordInputsBound, kPassword, "password.round-trip"}},
        {{"password.outputs",
          "the replies hold the converted material, a tag of 16 bytes (purpose 101) and a rot "
          "value of 16 bytes or none",
          "the conversion fails (-40), or the caller gets 16 zero bytes instead of the rot value"},
         {checkPasswordOutputs, kPassword, "password.round-trip"}},
        {{"call.answered-once",
          "each call runs its callback once, before it returns, on the caller's thread",
          "a late callback writes into memory that is used for something else; of two replies "
          "the last counts; a finish without one makes insertions return 0 and leaves store and "
          "backup as plaintext"},
         {checkAnsweredOnce}},
        {{"library.end-to-end",
          "the library itself inserts, selects, restarts, selects, detects damage and repairs it",
          "stores do not work, or do not survive a restart of the service"},
         {checkEndToEnd}},
        {{"ops.unfinished",
          "64 decryptions that end with an error and are not aborted leave room for a new "
          "operation",
          "after some damaged stores no operation can begin (-31), for the library and "
          "for other clients of the keymaster, until the system restarts"},
         {checkUnfinished, kNeedsKey | kJudgesRoom}},
        {{"password.unfinished",
          "64 conversions, which are one begin each, leave room for a new operation",
          "after some conversions no operation can begin (-31), for the library and for "
          "other clients of the keymaster"},
         {checkPasswordUnfinished, kPassword | kJudgesRoom, "password.round-trip"}},
        {{"ops.refused",
          "33 begins that are refused, of each purpose, leave room for a new operation",
          "after some refused calls no operation can begin (-31), for the library and for "
          "other clients of the keymaster, until the system restarts"},
         {checkRefused, kNeedsKey | kJudgesRoom}},
    };
}

// Those of verifyKey().
std::vector<Entry> laterEntries() {
    return {
        {{"later.key",
          "after a restart or an upgrade of the system, the key opens what it encrypted before; if "
          "getKeyCharacteristics asks for an upgrade (-62), upgradeKey makes a blob that needs "
          "none",
          "the store can no longer be read, and is lost"},
         {checkLaterKey}},
        {{"later.nonces", "no earlier nonce is used again",
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
