// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The process's one table. See db_object_table.h.

#include "db_object_table.h"

#include <cstring>

#include "db_matching.h"
#include "db_store_format.h"

namespace zelkm {
namespace {

constexpr uint8_t kAliasColumn = 0;

// FNV-1a.
uint32_t hashOf(const uint8_t* data, uint32_t len) {
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < len; ++i) {
        hash = (hash ^ data[i]) * 16777619u;
    }
    return hash;
}

// The value of a condition that only rows with exactly this alias satisfy, or null.
const db_token_t* exactAlias(const db_parsed_where_set_t& where, const uint8_t* condition_table) {
    for (uint32_t i = 0; i < where.count; ++i) {
        const db_token_t& value = where.where[i].value;
        if (condition_table[i] == kAliasColumn && where.where[i].op == SDB_OP_EQUAL &&
            value.token != nullptr && !(value.len == 1 && value.token[0] == '*')) {
            return &value;
        }
    }
    return nullptr;
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
    clearTable(&table_);
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

size_t ObjectTable::select(const db_parsed_where_set_t& where) {
    uint8_t condition_table[SDB_MAX_CONDITIONS];
    init_condition_table(condition_table, &where);
    size_t count = 0;
    const auto mark = [&](db_row* row) {
        const bool matches = check_condition_set(row, &where, condition_table) != 0;
        row->flags = matches ? row->flags | kSelected : row->flags & ~kSelected;
        count += matches ? 1 : 0;
    };

    const db_token_t* alias = exactAlias(where, condition_table);
    selected_by_alias_ = alias != nullptr && indexAliases();
    if (!selected_by_alias_) {
        for (db_row* row = table_.head; row != nullptr; row = row->next) {
            mark(row);
        }
        return count;
    }
    candidates_hash_ = hashOf(alias->token, alias->len);
    first_candidate_ = alias_hashes_.size();
    candidates_end_ = 0;
    for (size_t i = 0; i < alias_hashes_.size(); ++i) {
        if (alias_hashes_[i] == candidates_hash_) {
            first_candidate_ = candidates_end_ != 0 ? first_candidate_ : i;
            candidates_end_ = i + 1;
            mark(indexed_rows_[i]);
        }
    }
    return count;
}

void ObjectTable::removeSelected() {
    db_row** link = &table_.head;
    table_.tail = nullptr;
    size_t removed = 0;
    size_t text_at = 0;
    size_t text_kept = 0;
    for (size_t i = 0; *link != nullptr; ++i) {
        db_row* row = *link;
        const size_t text_len = has_text_ ? encodedLen(*row, kAllColumns) : 0;
        if (isCandidate(i) && isMarked(row)) {
            text_at += text_len;
            *link = row->next;
            free_row(row);
            ++removed;
            continue;
        }
        if (text_kept != text_at) {
            std::memmove(text_.data() + text_kept, text_.data() + text_at, text_len);
        }
        text_kept += text_len;
        text_at += text_len;
        if (indexed_) {
            alias_hashes_[i - removed] = alias_hashes_[i];
            indexed_rows_[i - removed] = row;
        }
        table_.tail = row;
        link = &row->next;
    }
    table_.count -= static_cast<uint32_t>(removed);
    if (indexed_) {
        alias_hashes_.resize(table_.count);
        indexed_rows_.resize(table_.count);
    }
    text_.resize(text_kept);
}

size_t ObjectTable::payloadLen() {
    if (!has_text_) {
        size_t len = 0;
        for (const db_row* row = table_.head; row != nullptr; row = row->next) {
            len += encodedLen(*row, kAllColumns);
        }
        if (!text_.reserve(len)) {
            return len + 1;
        }
        encodeRows(text_.data());
        text_.resize(len);
        has_text_ = true;
    }
    return text_.size() + 1;
}

void ObjectTable::writePayload(uint8_t* to) const {
    if (!has_text_) {
        to = encodeRows(to);
    } else if (text_.size() != 0) {
        std::memcpy(to, text_.data(), text_.size());
        to += text_.size();
    }
    *to = '\0';
}

uint8_t* ObjectTable::encodeRows(uint8_t* to) const {
    for (const db_row* row = table_.head; row != nullptr; row = row->next) {
        to = encodeRow(*row, kAllColumns, to);
    }
    return to;
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

bool ObjectTable::addToIndex(db_row* row) {
    if (!alias_hashes_.reserve(1) || !indexed_rows_.reserve(1)) {
        return false;
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
    selected_by_alias_ = false;
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

void ObjectTable::dropText() {
    text_.release();
    has_text_ = false;
}

}  // namespace zelkm
