// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of operations that are left open, and of how calls are answered.

#include "checks.h"
#include "gcm_run.h"

namespace keymaster_check {
namespace {

constexpr size_t kOperations = 64;

}  // namespace

Outcome checkUnfinished(Context& context) {
    if (context.key.empty()) {
        return notTried("there is no key: see key.generate");
    }
    const Run good = encrypt(context.caller, context.key, samplePayload(1), sampleAssociatedData());
    const Bytes input = good.all();
    if (!good.done() || input.empty() ||
        !decrypt(context.caller, context.key, good.nonce, input, sampleAssociatedData()).done()) {
        return notTried("operations do not end well: see gcm.correct");
    }
    const Bytes damaged = altered(input, input.size() - 1);
    for (size_t i = 0; i < kOperations; ++i) {
        context.caller.startCase();
        if (decrypt(context.caller, context.key, good.nonce, damaged, sampleAssociatedData())
                .ended == Run::End::kBegin) {
            return broken(context, "no operation begins after " + std::to_string(i) +
                                       " that ended with an error");
        }
    }
    context.caller.startCase();
    if (!context.caller.begin(KeyPurpose::ENCRYPT, context.key, gcmParams()).ok()) {
        return broken(context, "no operation begins after 64 that ended with an error");
    }
    return holds("64 decryptions of damaged input, none aborted, then begin", "the last began");
}

Outcome checkAnsweredOnce(Context& context) {
    CallbackWatch& watch = context.caller.callbacks();
    const std::lock_guard<std::mutex> lock(watch.mutex);
    if (watch.faults.empty()) {
        return holds("all the calls above", "one answer to each, in time and on its thread");
    }
    std::string faults;
    for (const auto& [what, times] : watch.faults) {
        faults += (faults.empty() ? "" : "; ") + what + " (" + std::to_string(times) + " times)";
    }
    return {Verdict::kBroken, "all the calls above", "callbacks ran wrongly: " + faults};
}

}  // namespace keymaster_check
