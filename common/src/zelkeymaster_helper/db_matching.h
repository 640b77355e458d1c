// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// WHERE conditions, and the patterns of stored access lists. velt_secure_db.h describes
// simple_reg_cmp() and enumerated_simple_reg_cmp(), which are also defined here.

#pragma once

#include "velt_secure_db.h"

namespace zelkm {

// The value of a query, with which stored values are compared. The constructor works out once what
// all comparisons need.
struct Subject {
    Subject() = default;
    Subject(const uint8_t* bytes, uint32_t length);

    const uint8_t* data;
    uint32_t len;
    bool isNumber() const { return number_len != 0 && number_len == len; }

    bool any;             // "*", which every stored value matches
    uint32_t number;      // the number at the subject's start
    uint32_t number_len;  // its digits; 0 without a number of 32 bits
};

struct Condition {
    uint8_t column;
    bool enumerated;
    bool pattern;
    Subject subject;
};

// The conditions of one command, prepared for a comparison with many rows. A condition on an
// unknown column counts as satisfied, and is left out.
struct ConditionSet {
    explicit ConditionSet(const db_parsed_where_set_t& where);

    bool never;  // no row can match: a condition has no value, or another operator than "="
    uint32_t count;
    Condition conditions[SDB_MAX_CONDITIONS];
};

// Whether the row satisfies all conditions.
[[nodiscard]] bool check_condition_set(const db_row& row, const ConditionSet& set);

struct NumberRange {
    uint32_t low;
    uint32_t high;

    bool contains(uint32_t number) const { return low <= number && number <= high; }
};

// A range that holds the numbers of all patterns in a list. A subject whose number is outside it
// matches none of them.
NumberRange rangeOfList(const uint8_t* list, uint32_t len);

}  // namespace zelkm
