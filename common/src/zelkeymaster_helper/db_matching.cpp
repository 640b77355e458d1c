// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_matching.h"

#include <algorithm>
#include <cstring>

#include "db_rows.h"

namespace zelkm {
namespace {

// Reads a run of bytes from front to back, never beyond its end.
class Cursor {
  public:
    Cursor(const uint8_t* data, uint32_t len) : at_(data), end_(data + len) {}

    bool atEnd() const { return at_ == end_; }
    bool atLast() const { return end_ - at_ == 1; }
    bool atDigit() const { return !atEnd() && *at_ >= '0' && *at_ <= '9'; }
    const uint8_t* at() const { return at_; }
    uint8_t take() { return *at_++; }
    void advance(uint32_t count) { at_ += count; }

    bool skip(uint8_t byte) {
        if (atEnd() || *at_ != byte) {
            return false;
        }
        ++at_;
        return true;
    }

    // Moves behind the next `byte`. When there is none, it does not move, and returns false.
    bool skipPast(uint8_t byte) {
        const void* found =
            atEnd() ? nullptr : std::memchr(at_, byte, static_cast<size_t>(end_ - at_));
        if (found == nullptr) {
            return false;
        }
        at_ = static_cast<const uint8_t*>(found) + 1;
        return true;
    }

    // Takes the digits at this place off the run; without digits the number is 0. False when the
    // number does not fit 32 bits.
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

// Compares a range with a number. The range's "[" is taken already: "lo..hi]". The part that fails
// most often comes first.
bool matchRange(Cursor* pattern, uint32_t number) {
    uint32_t low = 0;
    uint32_t high = UINT32_MAX;
    return pattern->takeNumber(&low) && low <= number && pattern->skip('.') && pattern->skip('.') &&
           (!pattern->atDigit() || pattern->takeNumber(&high)) && number <= high &&
           pattern->skip(']');
}

bool matchPattern(Cursor pattern, const Subject& subject) {
    Cursor rest(subject.data, subject.len);
    while (!pattern.atEnd()) {
        const bool last = pattern.atLast();
        const uint8_t element = pattern.take();
        if (element == '[') {
            uint32_t number = subject.number;
            if (rest.at() == subject.data) {
                if (subject.number_len == 0) {
                    return false;
                }
                rest.advance(subject.number_len);
            } else if (!rest.atDigit() || !rest.takeNumber(&number)) {
                return false;
            }
            if (!matchRange(&pattern, number)) {
                return false;
            }
        } else if (element == '*') {
            if (last) {
                return true;
            }
            const uint8_t delimiter = pattern.take();
            if ((delimiter != '#' && delimiter != '_') || !rest.skipPast(delimiter)) {
                return false;
            }
        } else if (!rest.skip(element)) {
            return false;
        }
    }
    return rest.atEnd();
}

// Compares a stored value, or an item of one, with a subject that is not empty.
bool matchItem(const uint8_t* item, uint32_t len, const Subject& subject, bool use_pattern) {
    if (subject.any) {
        return true;
    }
    if (!use_pattern) {
        return len == subject.len && std::memcmp(item, subject.data, len) == 0;
    }
    return len != 0 && matchPattern({item, len}, subject);
}

// Calls action(item, its length) for each item, until one returns true.
template <typename Action>
bool anyItem(const uint8_t* list, uint32_t len, Action action) {
    const uint8_t* const end = list + len;
    const uint8_t* item = len != 0 && *list == ',' ? list + 1 : list;
    while (item != end) {
        const void* comma = std::memchr(item, ',', static_cast<size_t>(end - item));
        const uint8_t* const item_end = comma != nullptr ? static_cast<const uint8_t*>(comma) : end;
        if (action(item, static_cast<uint32_t>(item_end - item))) {
            return true;
        }
        item = comma != nullptr ? item_end + 1 : end;
    }
    return false;
}

bool matchList(const uint8_t* list, uint32_t list_len, const Subject& subject, bool use_pattern) {
    return anyItem(list, list_len, [&](const uint8_t* item, uint32_t len) {
        return matchItem(item, len, subject, use_pattern);
    });
}

// The range of an item that is one number or one range. False for any other item.
bool takeItemRange(Cursor item, NumberRange* range) {
    if (item.skip('[')) {
        range->high = UINT32_MAX;
        return item.takeNumber(&range->low) && item.skip('.') && item.skip('.') &&
               (!item.atDigit() || item.takeNumber(&range->high)) && item.skip(']') && item.atEnd();
    }
    const bool number = item.atDigit() && item.takeNumber(&range->low);
    range->high = range->low;
    return number && item.atEnd();
}

}  // namespace

Subject::Subject(const uint8_t* bytes, uint32_t length)
    : data(bytes), len(length), any(length == 1 && bytes[0] == '*'), number(0), number_len(0) {
    Cursor cursor(bytes, length);
    if (cursor.takeNumber(&number)) {
        number_len = static_cast<uint32_t>(cursor.at() - bytes);
    }
}

ConditionSet::ConditionSet(const db_parsed_where_set_t& where) : never(false), count(0) {
    for (uint32_t i = 0; i < where.count; ++i) {
        const db_parsed_where_t& condition = where.where[i];
        const uint8_t column = findColumn(condition.column);
        if (condition.op != SDB_OP_EQUAL) {
            never = true;
        } else if (column != kNoColumn) {
            if (condition.value.token == nullptr || condition.value.len == 0) {
                never = true;
                continue;
            }
            const uint32_t flags = column_schema[column].flags;
            conditions[count++] = {column,
                                   (flags & SDB_ATTR_ENUMERATED) != 0,
                                   (flags & SDB_ATTR_PATTERN) != 0,
                                   {condition.value.token, condition.value.len}};
        }
    }
}

NumberRange rangeOfList(const uint8_t* list, uint32_t list_len) {
    NumberRange whole = {UINT32_MAX, 0};
    const bool unknown = anyItem(list, list_len, [&whole](const uint8_t* item, uint32_t len) {
        NumberRange range = {};
        const bool known = takeItemRange({item, len}, &range);
        whole = {std::min(whole.low, range.low), std::max(whole.high, range.high)};
        return !known;
    });
    return unknown ? NumberRange{0, UINT32_MAX} : whole;
}

bool check_condition_set(const db_row& row, const ConditionSet& set) {
    if (set.never) {
        return false;
    }
    for (uint32_t i = 0; i < set.count; ++i) {
        const Condition& condition = set.conditions[i];
        const db_column_value_t& stored = row.col[condition.column];
        const bool matches =
            condition.enumerated
                ? matchList(stored.data, stored.len, condition.subject, condition.pattern)
                : matchItem(stored.data, stored.len, condition.subject, condition.pattern);
        if (!matches) {
            return false;
        }
    }
    return true;
}

}  // namespace zelkm

int simple_reg_cmp(const uint8_t* pattern, uint32_t plen, const uint8_t* subject, uint32_t slen,
                   uint32_t use_pattern) {
    if (subject == nullptr || slen == 0) {
        return 0;
    }
    return zelkm::matchItem(pattern, plen, {subject, slen}, use_pattern != 0) ? 1 : 0;
}

int enumerated_simple_reg_cmp(const uint8_t* list, uint32_t llen, const uint8_t* subject,
                              uint32_t slen, uint32_t use_pattern) {
    if (subject == nullptr || slen == 0) {
        return 0;
    }
    return zelkm::matchList(list, llen, {subject, slen}, use_pattern != 0) ? 1 : 0;
}
