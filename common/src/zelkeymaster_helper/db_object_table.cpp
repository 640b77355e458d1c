// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_object_table.h"

#include <cstring>

namespace zelkm {
namespace {

constexpr size_t kFewestLists = 8;

// FNV-1a. The product has more than 32 bits, since on a device one that wraps ends the process.
uint32_t hashOf(const uint8_t* data, uint32_t len) {
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < len; ++i) {
        hash = static_cast<uint32_t>(uint64_t{hash ^ data[i]} * 16777619u);
    }
    return hash;
}

uint32_t aliasHash(const db_row& row) {
    const db_column_value_t& alias = row.col[SDB_ALIAS];
    return hashOf(alias.data, alias.len);
}

NumberRange accessorsOf(const db_row& row) {
    const db_column_value_t& accessors = row.col[SDB_ACCESSOR];
    return rangeOfList(accessors.data, accessors.len);
}

}  // namespace

void ObjectTable::append(db_row* row) {
    row->next = nullptr;
    (table_.count != 0 ? table_.tail->next : table_.head) = row;
    table_.tail = row;
    ++table_.count;
    for (size_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        value_lens_[i] += row->col[i].len;
    }
    if (index_.size() != 0 && !follow(row)) {
        dropIndex();
    }
    if (text_.size() != 0 && !addToText(*row)) {
        text_.release();
    }
}

void ObjectTable::clear() {
    dropDerived();
    for (db_row* row = table_.head; row != nullptr;) {
        db_row* next = row->next;
        free_row(row);
        row = next;
    }
    *this = {};
}

void ObjectTable::replace(ObjectTable* loaded) {
    clear();
    *this = *loaded;
    *loaded = {};
}

uint32_t ObjectTable::remove(const ConditionSet& conditions) {
    if (conditions.never) {
        return 0;
    }
    const uint32_t count = table_.count;
    const auto removeEntry = [this](Entry& entry) {
        unlink(entry);
        release(entry.row);
        entry.row = nullptr;
    };
    if (text_.size() != 0) {
        makeIndex();  // which knows where the text of each row is
    }
    if (forEachMatchingEntry(conditions, removeEntry)) {
        closeGaps(count - table_.count);
        return count - table_.count;
    }
    text_.release();
    table_.tail = nullptr;
    for (db_row** link = &table_.head; *link != nullptr;) {
        db_row* row = *link;
        if (check_condition_set(*row, conditions)) {
            *link = row->next;
            release(row);
        } else {
            table_.tail = row;
            link = &row->next;
        }
    }
    return count - table_.count;
}

bool ObjectTable::setValue(db_row* row, size_t column, const uint8_t* data, uint32_t len) {
    value_lens_[column] -= row->col[column].len;
    const bool set = zelkm::setValue(row, column, data, len);
    value_lens_[column] += row->col[column].len;
    return set;
}

size_t ObjectTable::textLen(const ColumnList& columns) const {
    size_t len = size_t{table_.count} * (columns.count + 1);
    for (const uint8_t column : columns) {
        len += value_lens_[column];
    }
    return len;
}

uint8_t* ObjectTable::writeRows(const ColumnList& columns, uint8_t* to) const {
    for (const db_row* row = table_.head; row != nullptr; row = row->next) {
        to = encodeRow(*row, columns, to);
    }
    return to;
}

uint8_t* ObjectTable::writeText(uint8_t* to) {
    if (text_.size() != 0 || makeText()) {
        std::memcpy(to, text_.data(), text_.size());
        return to + text_.size();
    }
    return writeRows(kAllColumns, to);
}

ObjectTable::Filter ObjectTable::makeFilter(const ConditionSet& conditions) {
    const Subject* alias = nullptr;
    const Subject* accessor = nullptr;
    for (uint32_t i = 0; i < conditions.count; ++i) {
        const Condition& condition = conditions.conditions[i];
        if (condition.column == SDB_ALIAS && !condition.subject.any) {
            alias = &condition.subject;
        } else if (condition.column == SDB_ACCESSOR && condition.subject.isNumber()) {
            accessor = &condition.subject;
        }
    }
    Filter filter = {};
    if (alias != nullptr && makeIndex()) {
        filter.list = &listOf(hashOf(alias->data, alias->len));
    } else if (accessor != nullptr && makeIndex()) {
        indexAccessors();
        filter.accessor = accessor;
    }
    return filter;
}

// Releases a row, to which list and index still point.
void ObjectTable::release(db_row* row) {
    --table_.count;
    for (size_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        value_lens_[i] -= row->col[i].len;
    }
    free_row(row);
}

// Takes `removed` rows, which their entries have lost, out of the list and the text.
void ObjectTable::closeGaps(uint32_t removed) {
    if (removed == 0) {
        return;
    }
    db_row* before = nullptr;
    bool gap = false;
    size_t from = 0;  // text before this place went, or stays before `to`
    size_t to = 0;
    size_t len = 0;  // of the text after `from` that stays
    const bool has_text = text_.size() != 0;
    for (Entry& entry : index_) {
        if (entry.row != nullptr) {
            if (gap) {
                (before != nullptr ? before->next : table_.head) = entry.row;
                gap = false;
            }
            if (removed == 0) {
                break;
            }
            before = entry.row;
            len += entry.text_len;
        } else if (entry.text_len != 0) {
            if (has_text) {
                text_.move(to, from, len);
            }
            to += len;
            from += len + entry.text_len;
            len = 0;
            entry.text_len = 0;
            gap = true;
            --removed;
        }
    }
    if (gap) {
        (before != nullptr ? before->next : table_.head) = nullptr;
        table_.tail = before;
    }
    if (has_text) {
        text_.move(to, from, text_.size() - from);
        text_.resize(text_.size() - (from - to));
    }
    if (index_.size() > 2 * size_t{table_.count} + kFewestLists && !relink()) {
        dropIndex();
    }
}

bool ObjectTable::makeIndex() {
    if (index_.size() != 0) {
        return true;
    }
    bool made = index_.reserve(table_.count + table_.count / 4);
    for (db_row* row = table_.head; made && row != nullptr; row = row->next) {
        made = addToIndex(row);
    }
    if (!made || !link()) {
        dropIndex();
    }
    return index_.size() != 0;
}

bool ObjectTable::addToIndex(db_row* row) {
    const size_t text_len = encodedLen(*row, kAllColumns);
    if (text_len > UINT32_MAX || !index_.reserve(1)) {
        return false;
    }
    const NumberRange accessors = has_accessors_ ? accessorsOf(*row) : NumberRange{};
    index_.push({row, aliasHash(*row), static_cast<uint32_t>(text_len), accessors});
    return true;
}

void ObjectTable::indexAccessors() {
    for (Entry& entry : index_) {
        if (!has_accessors_ && entry.row != nullptr) {
            entry.accessors = accessorsOf(*entry.row);
        }
    }
    has_accessors_ = true;
}

// Leaves out the entries without a row.
bool ObjectTable::relink() {
    size_t kept = 0;
    for (const Entry& entry : index_) {
        if (entry.row != nullptr) {
            index_[kept] = entry;
            index_[kept++].next = aliasHash(*entry.row);
        }
    }
    index_.resize(kept);
    return link();
}

// Makes the lists of all entries, whose `next` is the hash.
bool ObjectTable::link() {
    size_t lists = kFewestLists;
    while (lists < index_.size()) {
        lists *= 2;
    }
    if (lists > lists_.size() && !lists_.reserve(lists - lists_.size())) {
        return false;
    }
    lists_.resize(lists);
    for (uint32_t& first : lists_) {
        first = kNone;
    }
    for (size_t i = index_.size(); i != 0;) {
        --i;
        uint32_t& first = listOf(index_[i].next);
        index_[i].next = first;
        first = static_cast<uint32_t>(i);
    }
    return true;
}

uint32_t& ObjectTable::listOf(uint32_t hash) const {
    return lists_[hash & (lists_.size() - 1)];
}

// Takes an entry out of its list. What follows it can still be reached from it.
void ObjectTable::unlink(const Entry& entry) {
    uint32_t* place = &listOf(aliasHash(*entry.row));
    while (&index_[*place] != &entry) {
        place = &index_[*place].next;
    }
    *place = entry.next;
}

bool ObjectTable::makeText() {
    const size_t len = textLen(kAllColumns);
    if (len == 0 || !text_.reserve(len)) {
        return false;
    }
    writeRows(kAllColumns, text_.data());
    text_.resize(len);
    return true;
}

bool ObjectTable::addToText(const db_row& row) {
    const size_t len = encodedLen(row, kAllColumns);
    if (!text_.reserve(len)) {
        return false;
    }
    encodeRow(row, kAllColumns, text_.end());
    text_.resize(text_.size() + len);
    return true;
}

// Lets the index, which there is, follow a row that was appended. False when out of memory.
bool ObjectTable::follow(db_row* row) {
    if (!addToIndex(row)) {
        return false;
    }
    if (index_.size() > 2 * lists_.size()) {
        return relink();
    }
    Entry& last = index_[index_.size() - 1];
    uint32_t* place = &listOf(last.next);
    while (*place != kNone) {
        place = &index_[*place].next;
    }
    *place = static_cast<uint32_t>(index_.size() - 1);
    last.next = kNone;
    return true;
}

void ObjectTable::dropIndex() {
    index_.release();
    lists_.release();
    has_accessors_ = false;
}

void ObjectTable::dropDerived() {
    dropIndex();
    text_.release();
}

}  // namespace zelkm
