// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "access_patterns.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

#include "bytes.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes the digits of a bound off the front of the text, if there are any. False when the number
// does not fit 32 bits.
bool takeBound(std::string_view* text, uint32_t* bound) {
    const size_t len =
        static_cast<size_t>(std::find_if_not(text->begin(), text->end(), isDigit) - text->begin());
    const std::string_view digits = text->substr(0, len);
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), *bound);
    text->remove_prefix(len);
    return len == 0 || parsed.ec == std::errc();
}

bool take(std::string_view* text, std::string_view expected) {
    const bool there = text->substr(0, expected.size()) == expected;
    text->remove_prefix(there ? expected.size() : 0);
    return there;
}

// Takes the rest of a range off the text; its "[" is gone already. Returns why it is no range.
std::optional<std::string> takeRange(std::string_view* text) {
    uint32_t low = 0;
    uint32_t high = std::numeric_limits<uint32_t>::max();
    const bool low_fits = takeBound(text, &low);
    const bool dots = take(text, "..");
    const bool high_fits = takeBound(text, &high);
    if (!dots || !take(text, "]")) {
        return "[ begins a range, [lo..hi] with decimal numbers";
    }
    if (!low_fits || !high_fits) {
        return "a bound of a range has at most 32 bits, 4294967295";
    }
    if (low > high) {
        return "the range is empty: its bounds are reversed";
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> patternProblem(std::string_view pattern) {
    bool after_range = false;  // the item before was a range, which takes all digits that follow
    while (!pattern.empty()) {
        const char c = pattern.front();
        pattern.remove_prefix(1);
        if (after_range && (c == '[' || isDigit(c))) {
            return "a number cannot follow a range, which takes all digits";
        }
        after_range = c == '[';
        if (c == '[') {
            if (const auto reason = takeRange(&pattern)) {
                return reason;
            }
        } else if (c == '*' && !pattern.empty() && !take(&pattern, "#") && !take(&pattern, "_")) {
            return "* may only be at the end, or in *# and *_";
        }
    }
    return std::nullopt;
}

std::optional<std::string> listProblem(std::string_view column, std::string_view list) {
    for (const std::string_view item : split(list, ',')) {
        const std::string shown = "item '" + escape(item) + "': ";
        if (!item.empty() && (item.front() == ' ' || item.back() == ' ')) {
            return shown + "the blank would be part of the name";
        }
        if (const auto reason = column == "ACCESSOR" ? patternProblem(item) : std::nullopt) {
            return shown + "nobody would ever match: " + *reason;
        }
    }
    return std::nullopt;
}

}  // namespace zelkm_tool
