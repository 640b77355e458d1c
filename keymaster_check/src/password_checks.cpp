// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of the password conversion.

#include <optional>

#include "checks.h"
#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {
namespace {

constexpr struct {
    Tag tag;
    size_t size;
} kInputs[] = {{PWHW_TAG_IN_1, 16}, {PWHW_TAG_IN_2, 32}, {PWHW_TAG_IN_3, 24}, {PWHW_TAG_IN_4, 20}};
constexpr size_t kMaterialSize = 32;
constexpr size_t kRotSize = 16;
constexpr size_t kConversions = 64;
constexpr char kNoRoundTrip[] = "no round trip: see password.round-trip";

// Converts the material, and keeps what takes that back.
Answer convert(Context& context) {
    const Answer there = context.make({Call::kBegin, {}, context.conversion, PWHW_PURPOSE_TO_KEY});
    context.reversal = context.conversion;
    context.reversal.back() = param(PWHW_TAG_KEY, bytesOf(there.params, PWHW_TAG_KEY));
    context.reversal.push_back(param(PWHW_TAG_TAG, bytesOf(there.params, PWHW_TAG_TAG)));
    return there;
}

// With one bit of this parameter altered, in the byte `at`.
Answer convertBack(Context& context, Tag tag = Tag::INVALID, size_t at = 0) {
    std::vector<KeyParameter> params = context.reversal;
    for (KeyParameter& entry : params) {
        if (entry.tag == tag) {
            entry.blob = altered(entry.blob, at);
        }
    }
    return context.make({Call::kBegin, {}, params, PWHW_PURPOSE_TO_ENCRYPTED_KEY});
}

bool bringsBack(const Context& context, const Answer& answer) {
    return answer.ok() && bytesOf(answer.params, PWHW_TAG_ENCRYPTED_KEY) ==
                              bytesOf(context.conversion, PWHW_TAG_ENCRYPTED_KEY);
}

bool hadRoundTrip(Context& context) {
    return context.outcomes["password.round-trip"].verdict == Verdict::kHolds;
}

// Says when one of the parameters has a wrong size, and what the library makes of it.
std::optional<Finding> wrongSizes(Context& context, const Answer& answer, Tag material, bool tag) {
    const std::string purpose = tag ? "purpose 101 returns " : "purpose 102 returns ";
    const auto size = [&answer](Tag of) { return bytesOf(answer.params, of).size(); };
    const auto wrong = [&](Tag of, const char* consequence) {
        return broken(context,
                      purpose + describeTag(of) + " of " + std::to_string(size(of)) + " bytes",
                      consequence);
    };
    if (size(material) == 0) {
        return wrong(material, "the conversion fails (-40), or its result is empty");
    }
    if (tag && size(PWHW_TAG_TAG) != kTagSize) {
        return wrong(PWHW_TAG_TAG, "the conversion fails (-40)");
    }
    if (findParam(answer.params, PWHW_TAG_ROT) != nullptr && size(PWHW_TAG_ROT) != kRotSize) {
        return wrong(PWHW_TAG_ROT, "the caller gets 16 zero bytes in place of the rot value");
    }
    return std::nullopt;
}

}  // namespace

Finding checkPasswordRoundTrip(Context& context) {
    for (const auto& input : kInputs) {
        context.conversion.push_back(param(input.tag, randomBytes(input.size)));
    }
    context.conversion.push_back(param(PWHW_TAG_ENCRYPTED_KEY, randomBytes(kMaterialSize)));
    const Answer there = convert(context);
    if (!there.ok()) {
        return refusedOrBroken(context, there, "no conversion", "conversions return -1000");
    }
    if (!bringsBack(context, convertBack(context))) {
        return broken(context, "the material did not come back");
    }
    return holds(context.sent(), context.answered());
}

Finding checkPasswordTagChecked(Context& context) {
    if (!hadRoundTrip(context)) {
        return notTried(kNoRoundTrip);
    }
    const size_t size = bytesOf(context.reversal, PWHW_TAG_TAG).size();
    if (size == 0) {
        return broken(context, "there is no tag to check");
    }
    for (const size_t at : {size_t{0}, size - 1}) {
        context.startCase();
        const Answer answer = convertBack(context, PWHW_TAG_TAG, at);
        if (!answer.arrived || answer.ok()) {
            return broken(context,
                          "the tag with byte " + std::to_string(at) + " altered is not refused");
        }
    }
    return holds("purpose 102 with the tag's first and last byte altered", "an error to each");
}

Finding checkPasswordInputsBound(Context& context) {
    if (!hadRoundTrip(context)) {
        return notTried(kNoRoundTrip);
    }
    for (const auto& input : kInputs) {
        context.startCase();
        const Answer answer = convertBack(context, input.tag);
        if (!answer.arrived || bringsBack(context, answer)) {
            return broken(context, "with input " + std::to_string(&input - kInputs + 1) +
                                       " altered the material comes back");
        }
    }
    return holds("purpose 102 with each of the four inputs altered alone",
                 "the material did not come back");
}

Finding checkPasswordOutputs(Context& context) {
    const Answer there = convert(context);
    if (!there.ok()) {
        return notTried("no conversion: see password.round-trip");
    }
    if (const auto wrong = wrongSizes(context, there, PWHW_TAG_KEY, /*tag=*/true)) {
        return *wrong;
    }
    const Answer back = convertBack(context);
    if (!back.ok()) {
        return holds(context.sent(),
                     "purpose 101 as it should; nothing of purpose 102: see password.round-trip");
    }
    if (const auto wrong = wrongSizes(context, back, PWHW_TAG_ENCRYPTED_KEY, /*tag=*/false)) {
        return *wrong;
    }
    return holds(context.sent(), context.answered());
}

Finding checkPasswordUnfinished(Context& context) {
    const bool has_key = !context.key.empty() && operationBegins(context, context.key);
    for (size_t i = 0; i < kConversions; ++i) {
        context.startCase();
        if (convert(context).ok()) {
            continue;
        }
        return i == 0 ? notTried("no conversion: see password.round-trip")
                      : broken(context, "no conversion after " + std::to_string(i));
    }
    context.startCase();
    if (has_key && !operationBegins(context, context.key)) {
        return broken(context, "no operation begins after 64 conversions");
    }
    return holds(has_key ? "64 times purpose 101, none aborted, then begin of an encryption"
                         : "64 times purpose 101, none aborted",
                 "the last began");
}

}  // namespace keymaster_check
