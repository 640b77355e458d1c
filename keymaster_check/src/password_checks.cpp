// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of the password conversion.

#include <optional>

#include "checks.h"
#include "gcm_run.h"
#include "zelkeymaster_vendor_tags.h"

namespace keymaster_check {
namespace {

constexpr Tag kInputTags[] = {PWHW_TAG_IN_1, PWHW_TAG_IN_2, PWHW_TAG_IN_3, PWHW_TAG_IN_4};
constexpr size_t kInputSizes[] = {16, 32, 24, 20};
constexpr size_t kMaterialSize = 32;
constexpr size_t kRotSize = 16;
constexpr size_t kConversions = 64;

std::vector<KeyParameter> inputParams(const Context& context) {
    std::vector<KeyParameter> params;
    for (size_t i = 0; i < 4; ++i) {
        params.push_back(param(kInputTags[i], context.password_inputs[i]));
    }
    return params;
}

Answer convert(Context& context) {
    std::vector<KeyParameter> params = inputParams(context);
    params.push_back(param(PWHW_TAG_ENCRYPTED_KEY, context.material));
    return context.begin(PWHW_PURPOSE_TO_KEY, {}, params);
}

// `params` are the four inputs.
Answer convertBack(Context& context, const Bytes& tag, std::vector<KeyParameter> params) {
    params.push_back(param(PWHW_TAG_KEY, context.converted));
    params.push_back(param(PWHW_TAG_TAG, tag));
    return context.begin(PWHW_PURPOSE_TO_ENCRYPTED_KEY, {}, params);
}

// The outcome of password.round-trip, for requirements that build on it. They are not tried when it
// is broken.
Finding afterRoundTrip(const Context& context) {
    return context.round_trip.verdict == Verdict::kBroken
               ? notTried("no round trip: see password.round-trip")
               : context.round_trip;
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

Finding tryRoundTrip(Context& context) {
    for (size_t i = 0; i < 4; ++i) {
        context.password_inputs[i] = randomBytes(kInputSizes[i]);
    }
    context.material = randomBytes(kMaterialSize);
    const Answer there = convert(context);
    if (!there.ok()) {
        return refusedOrBroken(context, there, "no conversion", "conversions return -1000");
    }
    context.converted = bytesOf(there.params, PWHW_TAG_KEY);
    context.tag = bytesOf(there.params, PWHW_TAG_TAG);
    const Answer back = convertBack(context, context.tag, inputParams(context));
    if (!back.ok() || bytesOf(back.params, PWHW_TAG_ENCRYPTED_KEY) != context.material) {
        return broken(context, "the material did not come back");
    }
    return holds(context.sent(), context.answered());
}

}  // namespace

Finding checkPasswordRoundTrip(Context& context) {
    context.round_trip = tryRoundTrip(context);
    return context.round_trip;
}

Finding checkPasswordTagChecked(Context& context) {
    if (context.round_trip.verdict != Verdict::kHolds) {
        return afterRoundTrip(context);
    }
    if (context.tag.empty()) {
        return broken(context, "there is no tag to check");
    }
    for (const size_t at : {size_t{0}, context.tag.size() - 1}) {
        context.startCase();
        const Answer answer = convertBack(context, altered(context.tag, at), inputParams(context));
        if (!answer.arrived || answer.ok()) {
            return broken(context,
                          "the tag with byte " + std::to_string(at) + " altered is not refused");
        }
    }
    return holds("purpose 102 with the tag's first and last byte altered", "an error to each");
}

Finding checkPasswordInputsBound(Context& context) {
    if (context.round_trip.verdict != Verdict::kHolds) {
        return afterRoundTrip(context);
    }
    for (size_t i = 0; i < 4; ++i) {
        context.startCase();
        std::vector<KeyParameter> params = inputParams(context);
        params[i] = param(kInputTags[i], altered(context.password_inputs[i], 0));
        const Answer answer = convertBack(context, context.tag, params);
        if (!answer.arrived ||
            (answer.ok() && bytesOf(answer.params, PWHW_TAG_ENCRYPTED_KEY) == context.material)) {
            return broken(context, "with input " + std::to_string(i + 1) +
                                       " altered the material comes back");
        }
    }
    return holds("purpose 102 with each of the four inputs altered alone",
                 "the material did not come back");
}

Finding checkPasswordOutputs(Context& context) {
    if (context.round_trip.verdict == Verdict::kNotOffered) {
        return context.round_trip;
    }
    const Answer there = convert(context);
    if (!there.ok()) {
        return notTried("no conversion: see password.round-trip");
    }
    if (const auto wrong = wrongSizes(context, there, PWHW_TAG_KEY, /*tag=*/true)) {
        return *wrong;
    }
    const Answer back =
        convertBack(context, bytesOf(there.params, PWHW_TAG_TAG), inputParams(context));
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
    if (context.round_trip.verdict == Verdict::kNotOffered) {
        return context.round_trip;
    }
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
