// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of operations that are left open, and of how calls reply.

#include "checks.h"
#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {
namespace {

constexpr size_t kOperations = 64;
// More than any hardware has room for. Each of these begins is refused.
constexpr size_t kRefusals = 33;

}  // namespace

Finding checkUnfinished(Context& context) {
    const Run good = encrypt(context, context.key, 1);
    const Bytes input = good.all();
    if (!good.done() || input.empty() || !decrypt(context, context.key, good).done()) {
        return notTried("operations do not end well: see gcm.correct");
    }
    const Bytes damaged = altered(input, input.size() - 1);
    for (size_t i = 0; i <= kOperations; ++i) {
        context.startCase();
        const bool begins =
            i < kOperations
                ? decrypt(context, context.key, good.nonce, damaged).failed != Call::kBegin
                : operationBegins(context, context.key);
        if (!begins) {
            return broken(context, "no operation begins after " + std::to_string(i) +
                                       " that ended with an error");
        }
    }
    return holds("64 decryptions of damaged input, none aborted, then begin", "the last began");
}

Finding checkRefused(Context& context) {
    if (!operationBegins(context, context.key)) {
        // The keymaster may be full because of the begins that were refused before.
        return !context.lost_room && context.foundNoRoom() && context.refusedBegins() > 0
                   ? broken(context, "no operation begins after " +
                                         std::to_string(context.refusedBegins()) +
                                         " begins that were refused")
                   : notTried("no operation begins: see gcm.correct");
    }
    const struct {
        const char* what;
        KeyPurpose purpose;
        Bytes blob;
    } kRefused[] = {
        {"encryptions with a damaged key", KeyPurpose::ENCRYPT, altered(context.key, 0)},
        {"decryptions without a nonce", KeyPurpose::DECRYPT, context.key},
        {"conversions (101) without inputs", PWHW_PURPOSE_TO_KEY, {}},
        {"conversions (102) without inputs", PWHW_PURPOSE_TO_ENCRYPTED_KEY, {}},
    };
    for (const auto& kind : kRefused) {
        const bool converts = kind.blob.empty();
        if (converts && !context.options.password) {
            continue;
        }
        for (size_t i = 0; i < kRefusals; ++i) {
            context.startCase();
            const Answer answer = context.make(
                {Call::kBegin, kind.blob, converts ? Params() : Params(gcmParams()), kind.purpose});
            if (answer.ok()) {
                context.abort(answer.handle);
                break;  // it is not refused at all
            }
        }
        if (!operationBegins(context, context.key)) {
            return broken(context, "no operation begins after " + std::to_string(kRefusals) + " " +
                                       kind.what + ", which were refused");
        }
    }
    return holds(
        "33 times each: begin of an encryption with a damaged key, of a decryption "
        "without a nonce, of the purposes 101 and 102 without inputs",
        "refused, and the next operation began");
}

Finding checkAnsweredOnce(Context& context) {
    CallbackWatch& watch = context.callbacks();
    const std::lock_guard<std::mutex> lock(watch.mutex);
    if (watch.faults.empty()) {
        return holds("all the calls above", "one reply to each, in time and on its thread");
    }
    std::string faults;
    std::string consequences;
    const struct {
        const char* fault;
        const char* consequence;
    } kConsequences[] = {
        {"after the call had returned",
         "a late callback writes into memory that is in use for something else"},
        {"on another thread", "nothing makes sure that the callback has run when the call returns"},
        {"once more", "of two replies the last counts, and their output is concatenated"},
        {"finish: not at all",
         "a finish without a reply makes insertions return 0 and leaves store and backup as "
         "plaintext"},
        {": not at all", "a call without a reply fails with -1000"},
    };
    for (const auto& [what, times] : watch.faults) {
        faults += (faults.empty() ? "" : "; ") + what + " (" + std::to_string(times) + " times)";
        for (const auto& known : kConsequences) {
            if (what.find(known.fault) != std::string::npos) {
                if (consequences.find(known.consequence) == std::string::npos) {
                    consequences +=
                        (consequences.empty() ? "" : "; ") + std::string(known.consequence);
                }
                break;
            }
        }
    }
    return {"", Verdict::kBroken, "all the calls above", "callbacks ran wrongly: " + faults,
            consequences};
}

}  // namespace keymaster_check
