// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_object_table.h"

#include <cstring>

#include "db_store_format.h"

namespace zelkm {
namespace {

constexpr uint8_t kAliasColumn = 0;
constexpr uint8_t kAccessorColumn = 3;

// FNV-1a.
uint32_t hashOf(const uint8_t* data, uint32_t len) {
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < len; ++i) {
        hash = (hash ^ data[i]) * 16777619u;
    }
    return hash;
}

NumberRange accessorsOf(const db_row& row) {
    const db_column_value_t& accessors = row.col[kAccessorColumn];
    return rangeOfList(accessors.data, accessors.len);
}

}  // namespace

void ObjectTable::append(db_row* row) {
    appendRow(&table_, row);
    if (indexed_ && !addToIndex(row)) {
        dropIndex();
    }
    if (has_text_ && !addToText(*row)) {
        dropText();
    }
}

void ObjectTable::clear() {
    clearRows(&table_);
    rowsChanged();
}

void ObjectTable::replace(db_table_t* rows) {
    clear();
    table_ = *rows;
    table_.handle = 0;
    table_.reserved = 0;
    *rows = {};
}

void ObjectTable::rowsChanged() {
    dropIndex();
    dropText();
}

size_t ObjectTable::remove(const ConditionSet& conditions) {
    Progress progress = {};
    size_t removed = 0;
    Filter filter;
    if (narrow(conditions, &filter)) {
        for (size_t i = 0; i < indexed_rows_.size(); ++i) {
            db_row* row = indexed_rows_[i];
            if (!filter.admits(i) || !check_condition_set(*row, conditions)) {
                continue;
            }
            closeGap(i, &progress);
            unlink(progress.kept != 0 ? indexed_rows_[progress.kept - 1] : nullptr, row);
            ++removed;
        }
    } else {
        db_row* before = nullptr;
        db_row* row = table_.head;
        for (size_t i = 0; row != nullptr; ++i) {
            db_row* next = row->next;
            if (check_condition_set(*row, conditions)) {
                closeGap(i, &progress);
                unlink(before, row);
                ++removed;
            } else {
                before = row;
            }
            row = next;
        }
    }
    closeGap(table_.count + removed, &progress);
    if (indexed_) {
        alias_hashes_.resize(progress.kept);
        indexed_rows_.resize(progress.kept);
    }
    if (has_ranges_) {
        accessor_ranges_.resize(progress.kept);
    }
    if (has_text_) {
        text_.resize(progress.text_kept);
        text_lens_.resize(progress.kept);
    }
    return removed;
}

void ObjectTable::unlink(db_row* before, db_row* row) {
    (before != nullptr ? before->next : table_.head) = row->next;
    if (row == table_.tail) {
        table_.tail = before;
    }
    --table_.count;
    free_row(row);
}

// Moves what was derived from the rows from `from` up to `end`, which goes, down to the rows that
// stay.
void ObjectTable::closeGap(size_t end, Progress* progress) {
    const size_t rows = end - progress->from;
    if (indexed_) {
        alias_hashes_.move(progress->kept, progress->from, rows);
        indexed_rows_.move(progress->kept, progress->from, rows);
    }
    if (has_ranges_) {
        accessor_ranges_.move(progress->kept, progress->from, rows);
    }
    if (has_text_) {
        size_t len = 0;
        for (size_t i = progress->from; i < end; ++i) {
            len += text_lens_[i];
        }
        text_.move(progress->text_kept, progress->text_from, len);
        progress->text_kept += len;
        progress->text_from += len + (end < text_lens_.size() ? text_lens_[end] : 0);
        text_lens_.move(progress->kept, progress->from, rows);
    }
    progress->kept += rows;
    progress->from = end + 1;
}

size_t ObjectTable::payloadLen() {
    if (has_text_ || makeText()) {
        return text_.size() + 1;
    }
    size_t len = 1;
    for (const db_row* row = table_.head; row != nullptr; row = row->next) {
        len += encodedLen(*row, kAllColumns);
    }
    return len;
}

void ObjectTable::writePayload(uint8_t* to) const {
    if (!has_text_) {
        for (const db_row* row = table_.head; row != nullptr; row = row->next) {
            to = encodeRow(*row, kAllColumns, to);
        }
    } else if (text_.size() != 0) {
        std::memcpy(to, text_.data(), text_.size());
        to += text_.size();
    }
    *to = '\0';
}

bool ObjectTable::narrow(const ConditionSet& conditions, Filter* filter) {
    for (uint32_t i = 0; i < conditions.count; ++i) {
        const Condition& condition = conditions.conditions[i];
        const Subject& subject = condition.subject;
        if (condition.column == kAliasColumn && !subject.any && indexAliases()) {
            *filter = {alias_hashes_.data(), nullptr, false, hashOf(subject.data, subject.len)};
            return true;
        }
        if (condition.column == kAccessorColumn && subject.isNumber() && indexAccessors()) {
            *filter = {nullptr, accessor_ranges_.data(), true, subject.number};
            return true;
        }
    }
    return false;
}

bool ObjectTable::indexAliases() {
    if (indexed_) {
        return true;
    }
    indexed_ = alias_hashes_.reserve(table_.count) && indexed_rows_.reserve(table_.count);
    for (db_row* row = table_.head; indexed_ && row != nullptr; row = row->next) {
        indexed_ = addToIndex(row);
    }
    return indexed_;
}

bool ObjectTable::indexAccessors() {
    if (has_ranges_) {
        return true;
    }
    if (!indexAliases() || !accessor_ranges_.reserve(table_.count)) {
        return false;
    }
    for (const db_row* row : indexed_rows_) {
        accessor_ranges_.push(accessorsOf(*row));
    }
    has_ranges_ = true;
    return true;
}

bool ObjectTable::addToIndex(db_row* row) {
    if (!alias_hashes_.reserve(1) || !indexed_rows_.reserve(1) ||
        (has_ranges_ && !accessor_ranges_.reserve(1))) {
        return false;
    }
    if (has_ranges_) {
        accessor_ranges_.push(accessorsOf(*row));
    }
    const db_column_value_t& alias = row->col[kAliasColumn];
    alias_hashes_.push(hashOf(alias.data, alias.len));
    indexed_rows_.push(row);
    return true;
}

void ObjectTable::dropIndex() {
    alias_hashes_.release();
    indexed_rows_.release();
    indexed_ = false;
    accessor_ranges_.release();
    has_ranges_ = false;
}

bool ObjectTable::makeText() {
    size_t len = 0;
    for (const db_row* row = table_.head; row != nullptr; row = row->next) {
        len += encodedLen(*row, kAllColumns);
    }
    has_text_ = text_.reserve(len) && text_lens_.reserve(table_.count);
    for (const db_row* row = table_.head; has_text_ && row != nullptr; row = row->next) {
        has_text_ = addToText(*row);
    }
    if (!has_text_) {
        dropText();
    }
    return has_text_;
}

bool ObjectTable::addToText(const db_row& row) {
    const size_t len = encodedLen(row, kAllColumns);
    if (len > UINT32_MAX || !text_.reserve(len) || !text_lens_.reserve(1)) {
        return false;
    }
    encodeRow(row, kAllColumns, text_.end());
    text_.resize(text_.size() + len);
    text_lens_.push(static_cast<uint32_t>(len));
    return true;
}

void ObjectTable::dropText() {
    text_.release();
    text_lens_.release();
    has_text_ = false;
}

}  // namespace zelkm
