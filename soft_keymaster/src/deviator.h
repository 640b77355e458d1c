// PROTECTS NOTHING: for development and tests only. Misbehaves on request.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes a keymaster deviate: changes what it is sent, and what it answers.

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

    // Whether the call's arguments get through the transport.
    bool fits(const CallRecord& call) const;
    // What the call is answered without the inner keymaster.
    std::optional<ErrorCode> refusal(const CallRecord& call) const;
    // The parameters for the inner keymaster. Chooses the nonce of an encryption.
    Params sent(const CallRecord& call);
    // Changes what the inner keymaster answered to the call.
    void change(const CallRecord& call, Answer& answer);
    void aborted(uint64_t handle) { open_.erase(handle); }

  private:
    bool choosesNonce() const;
    bool otherTag() const;
    void changeCharacteristics(Params& characteristics) const;
    // Notes which operations are open.
    void keepBooks(const CallRecord& call, const Answer& answer);
    void holdBack(const CallRecord& call, Answer& answer);

    const Deviation deviation_;
    Bytes nonce_;                     // of the encryption that begins
    std::map<uint64_t, Bytes> held_;  // output by operation
    std::set<uint64_t> open_;
};

}  // namespace soft_keymaster
