// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The pattern language must agree with a slow, obvious model of it.

#include <string>

#include "fuzz.h"
#include "velt_secure_db.h"

namespace {

// Takes the digits at `at`. Returns false when they do not fit 32 bits.
bool number(const std::string& text, size_t* at, uint64_t* value) {
    *value = 0;
    for (; *at < text.size() && text[*at] >= '0' && text[*at] <= '9'; ++*at) {
        *value = *value * 10 + uint64_t(text[*at] - '0');
        if (*value > UINT32_MAX) {
            return false;
        }
    }
    return true;
}

bool matches(const std::string& pattern, const std::string& subject) {
    if (pattern.empty()) {
        return subject.empty();
    }
    if (pattern == "*") {
        return true;
    }
    if (pattern[0] == '*') {
        const size_t found = subject.find(pattern[1]);
        return (pattern[1] == '#' || pattern[1] == '_') && found != std::string::npos &&
               matches(pattern.substr(2), subject.substr(found + 1));
    }
    if (pattern[0] == '[') {
        uint64_t low = 0, high = 0, value = 0;
        size_t at = 1, digits = 0;
        if (!number(pattern, &at, &low) || pattern.compare(at, 2, "..") != 0) {
            return false;
        }
        const size_t upper = at += 2;
        if (!number(pattern, &at, &high) || at >= pattern.size() || pattern[at] != ']') {
            return false;
        }
        high = at == upper ? UINT32_MAX : high;
        return number(subject, &digits, &value) && digits != 0 && low <= value && value <= high &&
               matches(pattern.substr(at + 1), subject.substr(digits));
    }
    return !subject.empty() && subject[0] == pattern[0] &&
           matches(pattern.substr(1), subject.substr(1));
}

bool modelMatches(const std::string& stored, const std::string& subject, bool use_pattern) {
    if (subject.empty() || subject == "*") {
        return !subject.empty();
    }
    return use_pattern ? !stored.empty() && matches(stored, subject) : stored == subject;
}

bool modelMatchesList(const std::string& list, const std::string& subject, bool use_pattern) {
    size_t start = 0;
    while (start < list.size()) {
        const size_t end = std::min(list.find(',', start), list.size());
        // A leading comma makes no item.
        if (end != 0 && modelMatches(list.substr(start, end - start), subject, use_pattern)) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size < 200 ? size : 200);  // the model recurses
    const uint32_t use_pattern = input.byte() & 1;
    const fuzz::Block stored = input.block();
    const fuzz::Block subject = input.rest();
    const std::string pattern(stored.text(), stored.len);
    const std::string text(subject.text(), subject.len);
    fuzz::require(simple_reg_cmp(stored.data.get(), stored.len, subject.data.get(), subject.len,
                                 use_pattern) == modelMatches(pattern, text, use_pattern != 0));
    fuzz::require(enumerated_simple_reg_cmp(stored.data.get(), stored.len, subject.data.get(),
                                            subject.len, use_pattern) ==
                  modelMatchesList(pattern, text, use_pattern != 0));
    return 0;
}
