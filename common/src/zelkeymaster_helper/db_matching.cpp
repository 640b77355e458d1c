// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// WHERE conditions and the pattern language. See db_matching.h.

#include "db_matching.h"

#include <cstring>

#include "db_table.h"

namespace zelkm {
namespace {

// Reads a run of bytes from front to back, never beyond its end.
class Cursor {
  public:
    Cursor(const uint8_t* data, uint32_t len) : at_(data), end_(data + len) {}

    bool atEnd() const { return at_ == end_; }
    bool atLast() const { return end_ - at_ == 1; }
    bool atDigit() const { return !atEnd() && *at_ >= '0' && *at_ <= '9'; }
    uint8_t take() { return *at_++; }

    bool skip(uint8_t byte) {
        if (atEnd() || *at_ != byte) {
            return false;
        }
        ++at_;
        return true;
    }

    // Moves behind the next `byte`; false, without moving, if there is none.
    bool skipPast(uint8_t byte) {
        const void* found =
            atEnd() ? nullptr : std::memchr(at_, byte, static_cast<size_t>(end_ - at_));
        if (found == nullptr) {
            return false;
        }
        at_ = static_cast<const uint8_t*>(found) + 1;
        return true;
    }

    // Takes the run of digits here, 0 if there is none. False when it does not fit 32 bits.
    bool takeNumber(uint32_t* number) {
        uint64_t value = 0;
        while (atDigit()) {
            value = value * 10 + (take() - uint64_t{'0'});
            if (value > UINT32_MAX) {
                return false;
            }
        }
        *number = static_cast<uint32_t>(value);
        return true;
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

// A range "lo..hi]", whose "[" has been taken, against the number at the subject.
bool matchRange(Cursor* pattern, Cursor* subject) {
    uint32_t low = 0;
    uint32_t high = UINT32_MAX;
    uint32_t number = 0;
    return pattern->takeNumber(&low) && pattern->skip('.') && pattern->skip('.') &&
           (!pattern->atDigit() || pattern->takeNumber(&high)) && pattern->skip(']') &&
           subject->atDigit() && subject->takeNumber(&number) && low <= number && number <= high;
}

bool matchPattern(Cursor pattern, Cursor subject) {
    while (!pattern.atEnd()) {
        const bool last = pattern.atLast();
        const uint8_t element = pattern.take();
        if (element == '[') {
            if (!matchRange(&pattern, &subject)) {
                return false;
            }
        } else if (element == '*') {
            if (last) {
                return true;
            }
            const uint8_t delimiter = pattern.take();
            if ((delimiter != '#' && delimiter != '_') || !subject.skipPast(delimiter)) {
                return false;
            }
        } else if (!subject.skip(element)) {
            return false;
        }
    }
    return subject.atEnd();
}

bool isAsterisk(const uint8_t* data, uint32_t len) {
    return len == 1 && data[0] == '*';
}

}  // namespace

void init_condition_table(uint8_t* table, const db_parsed_where_set_t* where) {
    for (uint32_t i = 0; i < where->count; ++i) {
        table[i] = findColumn(where->where[i].column);
    }
}

int check_condition_set(const db_row* row, const db_parsed_where_set_t* where,
                        const uint8_t* table) {
    if (row == nullptr || where == nullptr) {
        return 0;
    }
    for (uint32_t i = 0; i < where->count; ++i) {
        if (where->where[i].op != SDB_OP_EQUAL) {
            return 0;
        }
        if (table[i] == kNoColumn) {
            continue;
        }
        const db_column_value_t& stored = row->col[table[i]];
        const db_token_t& subject = where->where[i].value;
        const uint32_t flags = column_schema[table[i]].flags;
        const auto compare =
            (flags & SDB_ATTR_ENUMERATED) != 0 ? enumerated_simple_reg_cmp : simple_reg_cmp;
        if (compare(stored.data, stored.len, subject.token, subject.len,
                    flags & SDB_ATTR_PATTERN) == 0) {
            return 0;
        }
    }
    return 1;
}

}  // namespace zelkm

int simple_reg_cmp(const uint8_t* pattern, uint32_t plen, const uint8_t* subject, uint32_t slen,
                   uint32_t use_pattern) {
    if (subject == nullptr || slen == 0) {
        return 0;
    }
    if (zelkm::isAsterisk(subject, slen)) {
        return 1;
    }
    if (use_pattern == 0) {
        return plen == slen && std::memcmp(pattern, subject, slen) == 0 ? 1 : 0;
    }
    if (plen == 0) {
        return 0;
    }
    return zelkm::matchPattern({pattern, plen}, {subject, slen}) ? 1 : 0;
}

int enumerated_simple_reg_cmp(const uint8_t* list, uint32_t llen, const uint8_t* subject,
                              uint32_t slen, uint32_t use_pattern) {
    uint32_t start = 0;
    for (uint32_t i = 0; i < llen; ++i) {
        const bool comma = list[i] == ',';
        if (!comma && i + 1 != llen) {
            continue;
        }
        const uint32_t end = comma ? i : i + 1;
        if (end != 0 &&
            simple_reg_cmp(list + start, end - start, subject, slen, use_pattern) != 0) {
            return 1;
        }
        start = i + 1;
    }
    return 0;
}
