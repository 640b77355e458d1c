// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of requirements, with what a keymaster that breaks one does to the library's users.

#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

const std::vector<Requirement>& requirements() {
    // The table is never destroyed, because callbacks that come late may outlive everything else.
    static const auto* const kRequirements = new std::vector<Requirement>{
        {"key.generate", "generateKey makes a key from the seven parameters of the database key",
         "no store can be encrypted: every insertion fails with the keymaster's code, or answers 0 "
         "again and again without ever keeping a key"},
        {"key.characteristics",
         "getKeyCharacteristics answers 0 for a fresh blob, and lists what the key was made with",
         "the key that is loaded at the next start is refused, or is weaker than was asked for; "
         "the library looks at the code alone"},
        {"key.damaged-blob",
         "getKeyCharacteristics and begin answer a damaged blob with exactly -33",
         "a damaged key file is used as if it were whole, or is not replaced by the stored one: "
         "only -33 starts that repair"},
        {"gcm.nonce-length", "begin of an encryption answers one NONCE of exactly 12 bytes",
         "insertions answer 0, and from the next start on the store is refused (-30) or holds "
         "no nonce (-51)"},
        {"gcm.nonce-fresh", "no nonce comes twice under one key",
         "everything answers 0 for ever, and whoever reads two versions of the store file learns "
         "the objects and can forge them"},
        {"gcm.output-in-update",
         "update puts out as many bytes as the payload has, none of them left for finish",
         "insertions answer 0 and leave what was held back on the disk as plaintext; after three "
         "starts the store is gone"},
        {"gcm.tag-in-finish",
         "finish puts out exactly the 16 bytes of the tag when encrypting, and never 16 bytes "
         "when decrypting",
         "insertions answer 0, and the next start refuses the store (-30); 16 bytes from a "
         "decryption's finish leave the objects unread"},
        {"gcm.tag-checked",
         "a decryption with another tag, ciphertext or nonce ends with exactly -30 from finish",
         "a damaged or forged store is taken for a good one, or is refused without the repair "
         "that only -30 starts"},
        {"gcm.aad-checked",
         "a decryption with other associated data, or without, ends with exactly -30 from finish",
         "a store whose format version was changed is read as if it were the other version"},
        {"gcm.correct",
         "the result is AES-256-GCM's, and what was encrypted decrypts, in any order and however "
         "it is cut",
         "objects come back as other bytes than were stored, or are stored readable for "
         "everybody"},
        {"gcm.sizes", "a payload of every size up to the largest wanted gets through, both ways",
         "the insertion that passes the limit answers 0 and writes the whole store as plaintext "
         "marked as encrypted; every later start refuses it (-913 or -30)"},
        {"ops.unfinished",
         "64 decryptions that end with an error, and are not aborted, leave room for a new "
         "operation",
         "after some damaged stores no operation can begin any more (-31), for the library and "
         "for other clients of the keymaster, until the system starts again"},
        {"csr.request", "attestKey with the tag 0x70000899 answers 0 and exactly one blob",
         "generateCSR answers 0 and leaves the caller's request as it was"},
        {"csr.proof",
         "the request is PKCS #10, its signature verifies, and its key is the attested one",
         "generateCSR hands out a request that no authority accepts, or that asks for another "
         "key's certificate"},
        {"attest.chain",
         "attestKey answers three certificates or more, which validateAttestChain accepts",
         "validateAttestChain refuses the device's own chains (-30)"},
        {"password.round-trip", "purpose 102 gives back the material that purpose 101 was given",
         "material converted once is lost"},
        {"password.tag-checked", "purpose 102 refuses another tag than purpose 101 answered",
         "damaged or forged material is converted as if it were whole"},
        {"password.inputs-bound",
         "purpose 102 gives the material back for none of the four inputs altered",
         "the material can be had without the input that should protect it"},
        {"password.outputs",
         "the answers hold the converted material, a tag of 16 bytes (purpose 101) and a rot "
         "value of 16 bytes or none",
         "the conversion answers -40, or 16 zero bytes in place of the rot value"},
        {"password.unfinished",
         "64 conversions, which are one begin each, leave room for a new operation",
         "after some conversions no operation can begin any more (-31), for the library and for "
         "other clients of the keymaster"},
        {"call.answered-once",
         "each call runs its callback once, before it returns, on the caller's thread",
         "a late callback writes into memory that is in use for something else; of two answers the "
         "last counts, and their output is put together; without an answer the result is -1000"},
        {"library.end-to-end",
         "the library itself inserts, selects, starts again, selects, notices damage and repairs "
         "it",
         "stores do not survive, whatever the other requirements say"},
    };
    return *kRequirements;
}

}  // namespace keymaster_check
