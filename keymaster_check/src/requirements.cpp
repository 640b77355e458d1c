// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of requirements, with what a keymaster that breaks one does to the library's users.

#include "checks.h"

namespace keymaster_check {
namespace {

std::vector<Requirement> requirementsOf(const std::vector<Entry>& of) {
    std::vector<Requirement> made;
    for (const Entry& entry : of) {
        made.push_back(entry.requirement);
    }
    return made;
}

}  // namespace

const std::vector<Entry>& entries() {
    static const std::vector<Entry> kEntries = {
        {{"key.generate", "generateKey makes a key from the seven parameters of the database key",
          "every insertion is refused with the keymaster's code"},
         checkKeyGenerate},
        {{"key.characteristics",
          "getKeyCharacteristics returns 0 for a fresh blob, and lists what the key was made with",
          "the stored key is refused at the next start, or is weaker than requested"},
         checkKeyCharacteristics},
        {{"key.damaged-blob",
          "getKeyCharacteristics and begin refuse a damaged blob with exactly -33, unless it is "
          "still the same key",
          "a damaged key file is used as if it were whole, or is not replaced: only -33 starts "
          "that"},
         checkKeyDamagedBlob},
        {{"key.upgrade",
          "upgradeKey returns no blob for a fresh key, or one that opens what the old blob "
          "encrypted",
          "a key that needs an upgrade is lost, and the store with it"},
         checkKeyUpgrade},
        {{"gcm.nonce-length", "begin of an encryption returns one NONCE of exactly 12 bytes",
          "insertions return 0, and the next start refuses the store (-30)"},
         checkNonceLength},
        {{"gcm.nonce-fresh", "no nonce is used twice with one key",
          "everything returns 0, but whoever reads two versions of the store file learns "
          "the objects and can forge them"},
         checkNonceFresh},
        {{"gcm.output-in-update",
          "update returns as many bytes as the payload has, and leaves none for finish",
          "insertions return 0 and leave the bytes held back on the disk as plaintext; after three "
          "starts the store is lost"},
         checkOutputInUpdate},
        {{"gcm.tag-in-finish",
          "finish returns exactly the 16 bytes of the tag when encrypting, and never 16 bytes "
          "when decrypting",
          "insertions return 0, and the next start refuses the store (-30), or does not read it"},
         checkTagInFinish},
        {{"gcm.tag-checked",
          "a decryption with another tag, ciphertext or nonce ends with exactly -30 from finish",
          "a damaged or forged store is accepted as a good one, or is refused without the repair "
          "that only -30 starts"},
         checkTagChecked},
        {{"gcm.aad-checked",
          "a decryption with other associated data, or without, ends with exactly -30 from finish",
          "a store whose format version was changed is read as if it were the other version"},
         checkAadChecked},
        {{"gcm.correct",
          "the result is AES-256-GCM's, and what was encrypted decrypts, in any order and however "
          "it is split",
          "objects cannot be read back, or are stored readable for everybody"},
         checkCorrect},
        {{"gcm.sizes", "payloads of every size up to the largest requested get through, both ways",
          "the insertion that exceeds the limit is refused; or, when the transport fails, it "
          "returns 0 and writes the whole store as plaintext marked as encrypted, which every "
          "later start refuses (-913 or -30)"},
         checkSizes},
        {{"csr.request", "attestKey with the tag 0x70000899 returns 0 and exactly one blob",
          "generateCSR returns 0 and leaves the caller's request unchanged"},
         checkCsrRequest},
        {{"csr.proof",
          "the request is PKCS #10, its signature verifies, and its key is the attested one",
          "generateCSR returns a request that no authority accepts, or that asks for another "
          "key's certificate"},
         checkCsrProof},
        {{"attest.chain",
          "attestKey returns three certificates or more, which validateAttestChain accepts",
          "validateAttestChain refuses the device's own chains (-30)"},
         checkAttestChain},
        {{"password.round-trip", "purpose 102 returns the material that purpose 101 was given",
          "material converted once is lost"},
         checkPasswordRoundTrip},
        {{"password.tag-checked",
          "purpose 102 refuses a tag other than the one that purpose 101 returned",
          "damaged or forged material is converted as if it were whole"},
         checkPasswordTagChecked},
        {{"password.inputs-bound",
          "purpose 102 does not return the material if any of the four inputs is altered",
          "the material can be recovered without the input that should protect it"},
         checkPasswordInputsBound},
        {{"password.outputs",
          "the replies hold the converted material, a tag of 16 bytes (purpose 101) and a rot "
          "value of 16 bytes or none",
          "the conversion fails (-40), or the caller gets 16 zero bytes instead of the rot value"},
         checkPasswordOutputs},
        {{"call.answered-once",
          "each call runs its callback once, before it returns, on the caller's thread",
          "a late callback writes into memory that is used for something else; of two replies "
          "the last counts; a finish without one makes insertions return 0 and leaves store and "
          "backup as plaintext"},
         checkAnsweredOnce},
        {{"library.end-to-end",
          "the library itself inserts, selects, restarts, selects, detects damage and repairs it",
          "stores do not work, or do not survive a restart of the service"},
         checkEndToEnd},
        {{"ops.unfinished",
          "64 decryptions that end with an error and are not aborted leave room for a new "
          "operation",
          "after some damaged stores no operation can begin (-31), for the library and "
          "for other clients of the keymaster, until the system restarts"},
         checkUnfinished},
        {{"password.unfinished",
          "64 conversions, which are one begin each, leave room for a new operation",
          "after some conversions no operation can begin (-31), for the library and for "
          "other clients of the keymaster"},
         checkPasswordUnfinished},
        {{"ops.refused",
          "33 begins that are refused, of each purpose, leave room for a new operation",
          "after some refused calls no operation can begin (-31), for the library and for "
          "other clients of the keymaster, until the system restarts"},
         checkRefused},
    };
    return kEntries;
}

const std::vector<Entry>& laterEntries() {
    static const std::vector<Entry> kEntries = {
        {{"later.key",
          "after a restart or an upgrade of the system, the key opens what it encrypted before; if "
          "getKeyCharacteristics asks for an upgrade (-62), upgradeKey makes a blob that needs "
          "none",
          "the store can no longer be read, and is lost"},
         checkLaterKey},
        {{"later.nonces", "no earlier nonce is used again",
          "everything returns 0, but whoever reads two versions of the store file learns "
          "the objects and can forge them"},
         checkLaterNonces},
    };
    return kEntries;
}

std::vector<Requirement> requirements() {
    return requirementsOf(entries());
}

std::vector<Requirement> laterRequirements() {
    return requirementsOf(laterEntries());
}

}  // namespace keymaster_check
