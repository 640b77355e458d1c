// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// One function for each requirement. keymaster_check.cpp lists them, adds the ids to their
// findings, and the consequence of the requirement where a finding has none of its own.

#pragma once

#include <map>
#include <set>
#include <string>

#include "caller.h"
#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

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
