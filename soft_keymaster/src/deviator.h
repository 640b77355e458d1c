// PROTECTS NOTHING: for development and tests only. Misbehaves on request.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes a keymaster deviate: changes the calls that it gets, and its answers.

#pragma once

#include <map>
#include <optional>
#include <set>

#include "common.h"
#include "params.h"
#include "soft_keymaster/fault_keymaster.h"

namespace soft_keymaster {

class FaultKeymaster::Deviator {
  public:
    explicit Deviator(const Deviation& deviation = {}) : deviation_(deviation) {}

    // False when the call's arguments are too large for the transport.
    bool fits(const CallRecord& call) const;
    // The answer when the deviation refuses the call; nothing when the inner keymaster is to be
    // called.
    std::optional<ErrorCode> refusal(const CallRecord& call) const;
    // Changes the parameters for the inner keymaster. For an encryption, also chooses the nonce.
    void adjust(CallRecord& call);
    // Changes the inner keymaster's answer to the call.
    void change(const CallRecord& call, Answer& answer);

  private:
    bool choosesNonce() const;
    bool otherTag() const;
    void changeCharacteristics(Params& characteristics) const;
    // Notes which operations are open.
    void trackOperations(const CallRecord& call, const Answer& answer);
    void holdBack(const CallRecord& call, Answer& answer);

    const Deviation deviation_;
    Bytes nonce_;                     // of the encryption that begins
    std::map<uint64_t, Bytes> held_;  // output not returned yet, by operation
    std::set<uint64_t> open_;
    uint16_t counted_ = 0;  // nonces
    size_t refused_ = 0;    // begins
};

}  // namespace soft_keymaster
