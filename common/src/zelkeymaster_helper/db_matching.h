// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// WHERE conditions and the pattern language of stored access lists. simple_reg_cmp() and
// enumerated_simple_reg_cmp(), also defined here, are described in velt_secure_db.h.

#pragma once

#include "velt_secure_db.h"

namespace zelkm {

// The value of a query, which stored values are compared with. The constructor works out once what
// every comparison looks at.
struct Subject {
    Subject() = default;
    Subject(const uint8_t* bytes, uint32_t length);

    const uint8_t* data;
    uint32_t len;
    bool isNumber() const { return number_len != 0 && number_len == len; }

    bool any;             // "*", which every stored value matches
    uint32_t number;      // at the front
    uint32_t number_len;  // in digits; 0 if there is no number, or none of 32 bits
};

struct Condition {
    uint8_t column;
    bool enumerated;
    bool pattern;
    Subject subject;
};

// The conditions of one command, made ready for comparing many rows with them. A condition on an
// unknown column counts as satisfied, and is left out.
struct ConditionSet {
    explicit ConditionSet(const db_parsed_where_set_t& where);

    bool never;  // no row satisfies them: one has another operator than "=", or no value
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

// A range of numbers: a subject that is a number outside it matches none of the list's patterns.
NumberRange rangeOfList(const uint8_t* list, uint32_t len);

}  // namespace zelkm
