// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The process's one table. Two things derived from its rows make commands cheap: an index, and the
// rows' text as it stands in a store. Every change of the rows passes through here, so that index
// and text stay in step. Each is made when it is first needed, follows rows that come and go, and
// is dropped by other changes. Without memory for one, commands walk the rows, with equal results.

#pragma once

#include "db_matching.h"
#include "db_rows.h"
#include "db_store_format.h"
#include "growing_array.h"
#include "velt_secure_db.h"

namespace zelkm {

// Has no destructor, because the process's table lives as long as the process. The owner of any
// other table calls clear().
class ObjectTable {
  public:
    const db_row* head() const { return table_.head; }
    uint32_t count() const { return table_.count; }
    // Equal to what the object's source keeps as g_table_handle, while that is current.
    uint64_t handle() const { return table_.handle; }
    void setHandle(uint64_t handle) { table_.handle = handle; }

    // Takes `row` over as the last one.
    void append(db_row* row);

    // Releases all rows; the handle becomes 0.
    void clear();

    // Releases all rows and takes over those of `loaded`. The handle becomes 0.
    void replace(ObjectTable* loaded);

    // Calls action(row) for each row that satisfies all conditions, in the table's order. Needs no
    // memory.
    template <typename Action>
    void forEachMatching(const ConditionSet& conditions, Action action) {
        const auto take = [&action](Entry& entry) { action(*entry.row); };
        if (conditions.never || forEachMatchingEntry(conditions, take)) {
            return;
        }
        for (const db_row* row = table_.head; row != nullptr; row = row->next) {
            if (check_condition_set(*row, conditions)) {
                action(*row);
            }
        }
    }

    // Releases the rows that satisfy all conditions, and returns how many they were. Needs no
    // memory.
    uint32_t remove(const ConditionSet& conditions);

    // Calls action(row), which may give the row other values with setValue(), for each row that
    // satisfies all conditions. Stops when an action returns false.
    template <typename Action>
    [[nodiscard]] bool update(const ConditionSet& conditions, Action action) {
        dropDerived();
        for (db_row* row = table_.head; row != nullptr; row = row->next) {
            if (check_condition_set(*row, conditions) && !action(row)) {
                return false;
            }
        }
        return true;
    }
    // As zelkm::setValue(), for a row of the table.
    [[nodiscard]] bool setValue(db_row* row, size_t column, const uint8_t* data, uint32_t len);

    // The length of the text of all rows.
    size_t textLen(const ColumnList& columns) const;

    // Writes the text of all rows, and the same of all columns. Returns the address after it.
    uint8_t* writeRows(const ColumnList& columns, uint8_t* to) const;
    uint8_t* writeText(uint8_t* to);

  private:
    // What the index knows of one row. When the row goes, its entry stays behind, in no list.
    struct Entry {
        db_row* row;
        uint32_t next;      // entry in the same list, or kNone; the hash until there are lists
        uint32_t text_len;  // the row's part of the text; 0 when that has gone as well
        NumberRange accessors;
    };
    static constexpr uint32_t kNone = UINT32_MAX;

    // What the index knows of the rows that alone can satisfy conditions; at most one of both.
    struct Filter {
        const uint32_t* list;
        const Subject* accessor;
    };

    // Calls action(entry) for each row that satisfies all conditions, in the table's order. False
    // without an index.
    template <typename Action>
    bool forEachMatchingEntry(const ConditionSet& conditions, Action action) {
        const Filter filter = makeFilter(conditions);
        if (index_.size() == 0) {
            return table_.count == 0;
        }
        const auto offer = [&](Entry& entry) {
            if (entry.row != nullptr && check_condition_set(*entry.row, conditions)) {
                action(entry);
            }
        };
        if (filter.list != nullptr) {
            for (uint32_t i = *filter.list; i != kNone; i = index_[i].next) {
                offer(index_[i]);
            }
        } else if (filter.accessor != nullptr) {
            const uint32_t number = filter.accessor->number;
            for (Entry& entry : index_) {
                if (entry.accessors.contains(number)) {
                    offer(entry);
                }
            }
        } else {
            for (Entry& entry : index_) {
                offer(entry);
            }
        }
        return true;
    }

    Filter makeFilter(const ConditionSet& conditions);
    void release(db_row* row);
    void closeGaps(uint32_t removed);
    bool makeIndex();
    bool addToIndex(db_row* row);
    void indexAccessors();
    bool relink();
    bool link();
    uint32_t& listOf(uint32_t hash) const;
    void unlink(const Entry& entry);
    bool makeText();
    bool addToText(const db_row& row);
    bool follow(db_row* row);
    void dropIndex();
    void dropDerived();

    db_table_t table_ = {};
    size_t value_lens_[SDB_NUM_COLUMNS] = {};  // of each column, in all rows together

    // In the table's order; empty without an index. Entries whose aliases have the same hash are in
    // one list, in the same order.
    GrowingArray<Entry> index_;
    GrowingArray<uint32_t> lists_;  // the first entry of each, or kNone
    bool has_accessors_ = false;    // once a condition has asked for them

    GrowingArray<uint8_t> text_;  // empty when it is not made
};

}  // namespace zelkm
