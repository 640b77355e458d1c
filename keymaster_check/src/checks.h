// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One function for each requirement. requirements.cpp lists them. Those whose id begins with "gcm."
// or "ops.", and those after key.generate with "key.", run only when there is a key.

#pragma once

#include <set>
#include <string>

#include "caller.h"
#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

struct Outcome {
    Verdict verdict;
    std::string sent;
    std::string answered;
    std::string consequence = {};  // of what was seen; empty for that of the requirement
    std::string note = {};
};

// What saveKey() writes down.
struct SavedKey {
    Bytes key = {};
    Bytes nonce = {};   // of the encryption of the sample payload
    Bytes output = {};  // its ciphertext and tag
    std::set<Bytes> nonces = {};
};

// Leaves `saved` empty when saveKey() has not made the text.
void readSavedKey(const std::string& text, SavedKey* saved);

// What the checks hand on to those after them.
struct Context {
    Keymaster& keymaster;
    const Options& options;
    Caller& caller;

    Bytes key = {};           // the database key; empty unless key.generate holds
    Bytes attested_key = {};  // an EC key, made by the first check that needs one

    Bytes request = {};  // a certificate request
    Outcome request_outcome = {Verdict::kNotTried, "", ""};

    // One conversion in both directions, and the outcome of password.round-trip.
    Bytes password_inputs[4] = {};
    Bytes material = {};
    Bytes converted = {};
    Bytes tag = {};
    Outcome round_trip = {Verdict::kNotTried, "", ""};

    bool lost_room = false;  // operations that the check opened may still be there
    SavedKey saved = {};
};

// A requirement, with the function that tries it.
struct Entry {
    Requirement requirement;
    Outcome (*check)(Context&);
};
const std::vector<Entry>& entries();
const std::vector<Entry>& laterEntries();

// The requirement holds. The texts summarise the calls and the answers.
Outcome holds(const std::string& sent, const std::string& answered);
// The requirement is broken: `reason` says what is wrong with the calls of the present case, and
// `consequence` what follows from that; if it is empty, all follows that the requirement tells.
Outcome broken(Context& context, const std::string& reason, const std::string& consequence = "");
// The last call of the present case refused the service.
Outcome notOffered(Context& context, const Answer& answer);
Outcome notTried(const std::string& reason);

Outcome checkKeyGenerate(Context& context);
Outcome checkKeyCharacteristics(Context& context);
Outcome checkKeyDamagedBlob(Context& context);
Outcome checkKeyUpgrade(Context& context);

Outcome checkNonceLength(Context& context);
Outcome checkNonceFresh(Context& context);
Outcome checkOutputInUpdate(Context& context);
Outcome checkTagInFinish(Context& context);
Outcome checkTagChecked(Context& context);
Outcome checkAadChecked(Context& context);
Outcome checkCorrect(Context& context);
Outcome checkSizes(Context& context);

Outcome checkCsrRequest(Context& context);
Outcome checkCsrProof(Context& context);
Outcome checkAttestChain(Context& context);

Outcome checkPasswordRoundTrip(Context& context);
Outcome checkPasswordTagChecked(Context& context);
Outcome checkPasswordInputsBound(Context& context);
Outcome checkPasswordOutputs(Context& context);
Outcome checkPasswordUnfinished(Context& context);

Outcome checkAnsweredOnce(Context& context);
Outcome checkEndToEnd(Context& context);

Outcome checkUnfinished(Context& context);
Outcome checkRefused(Context& context);

Outcome checkLaterKey(Context& context);
Outcome checkLaterNonces(Context& context);

}  // namespace keymaster_check
