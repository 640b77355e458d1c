// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the checks share: samples, operations with the calls that the library makes, and findings;
// and one function for each requirement. keymaster_check.cpp lists them, adds the ids to their
// findings, and the consequence of the requirement where a finding has none of its own.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "caller.h"
#include "keymaster_check/keymaster_check.h"
#include "velt_secure_db.h"

namespace keymaster_check {

constexpr size_t kTagSize = SDB_TAG_LEN;
constexpr size_t kNonceSize = SDB_IV_LEN;
constexpr size_t kPayload = 100;  // of most samples: not a multiple of a block

// The course of an operation, with all output of each call.
struct Run {
    KeyPurpose purpose = KeyPurpose::ENCRYPT;
    std::optional<Call> failed = Call::kBegin;  // the call that went wrong
    Answer last = {};                           // of that call
    size_t offered = 0;                         // bytes to the last update
    Bytes nonce = {};                           // of an encryption
    Bytes from_updates = {};
    Bytes from_finish = {};

    bool done() const { return !failed; }
    // Ciphertext and tag of an encryption, or the plaintext of a decryption.
    Bytes all() const;
    // Whether it ended well with a sample payload of this size. Bytes beyond it do not count:
    // gcm.tag-in-finish judges them.
    bool bringsBack(size_t size) const;
    // E.g. "update returned -1000 UNKNOWN_ERROR".
    std::string failure() const;
    // What the library makes of a store that it encrypts, or decrypts, in this way.
    std::string consequence() const;
};

// `size` bytes in a fixed sequence that does not repeat soon.
Bytes samplePayload(size_t size);
// The associated data of every store that the library writes.
Bytes sampleAssociatedData();

// Encrypts a sample payload of this size. Each update offers `cut` bytes of the rest. With the
// default, it offers all of the rest.
Run encrypt(Caller& caller, const Bytes& key, size_t size, size_t cut = SIZE_MAX);
// `input` is the ciphertext with the tag at its end.
Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data = sampleAssociatedData(), size_t cut = SIZE_MAX);
// What an encryption made, and in the same way.
inline Run decrypt(Caller& caller, const Bytes& key, const Run& encryption, size_t cut = SIZE_MAX) {
    return decrypt(caller, key, encryption.nonce, encryption.all(), sampleAssociatedData(), cut);
}

// Begins an encryption and aborts it.
Answer beginAndAbort(Caller& caller, const Bytes& key);
inline bool operationBegins(Caller& caller, const Bytes& key) {
    return beginAndAbort(caller, key).ok();
}
// The nonce of such an encryption; empty when it brings none. Starts a case.
Bytes drawNonce(Caller& caller, const Bytes& key);

Bytes randomBytes(size_t size);
// A copy of `bytes` with one bit of the byte `at` changed. It is unchanged when there is no such
// byte.
Bytes altered(Bytes bytes, size_t at);

// What saveKey() writes down.
struct SavedKey {
    Bytes key = {};
    Bytes nonce = {};   // of the encryption of the sample payload
    Bytes output = {};  // its ciphertext and tag
    std::set<Bytes> nonces = {};
};

// Empty when saveKey() has not made the text.
SavedKey readSavedKey(const std::string& text);

// What the checks hand on to those after them.
struct Context : Caller {
    using Caller::Caller;

    Bytes key = {};           // the database key; empty unless key.generate holds
    Bytes attested_key = {};  // an EC key, made by the first check that needs one
    Bytes request = {};       // a certificate request

    // What a password conversion takes, and what takes the last one back.
    std::vector<KeyParameter> conversion = {};
    std::vector<KeyParameter> reversal = {};

    std::map<std::string, Finding> outcomes = {};  // of the checks so far, by their ids
    bool lost_room = false;  // operations that the check opened may still be there
    SavedKey saved = {};
};

// The requirement holds. The texts summarise the calls and the answers.
Finding holds(const std::string& sent, const std::string& answered);
// The requirement is broken: `reason` says what is wrong with the calls of the present case, and
// `consequence` what follows from that; if it is empty, all follows that the requirement tells.
Finding broken(Context& context, const std::string& reason, const std::string& consequence = "");
Finding notTried(const std::string& reason);
// The last call did not reply with success: it refused the service, or failed for the `reason`.
Finding refusedOrBroken(Context& context, const Answer& answer, const std::string& reason,
                        const std::string& consequence = "");

Finding checkKeyGenerate(Context& context);
Finding checkKeyCharacteristics(Context& context);
Finding checkKeyDamagedBlob(Context& context);
Finding checkKeyUpgrade(Context& context);

Finding checkNonceLength(Context& context);
Finding checkNonceFresh(Context& context);
Finding checkOutputInUpdate(Context& context);
Finding checkTagInFinish(Context& context);
Finding checkTagChecked(Context& context);
Finding checkAadChecked(Context& context);
Finding checkCorrect(Context& context);
Finding checkSizes(Context& context);

Finding checkCsrRequest(Context& context);
Finding checkCsrProof(Context& context);
Finding checkAttestChain(Context& context);

Finding checkPasswordRoundTrip(Context& context);
Finding checkPasswordTagChecked(Context& context);
Finding checkPasswordInputsBound(Context& context);
Finding checkPasswordOutputs(Context& context);
Finding checkPasswordUnfinished(Context& context);

Finding checkAnsweredOnce(Context& context);
Finding checkEndToEnd(Context& context);

Finding checkUnfinished(Context& context);
Finding checkRefused(Context& context);

Finding checkLaterKey(Context& context);
Finding checkLaterNonces(Context& context);

}  // namespace keymaster_check
