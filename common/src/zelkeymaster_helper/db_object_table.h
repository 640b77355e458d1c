// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The process's one table. Two things derived from its rows make commands cheap: an index of
// aliases and of accessors' numbers, and the rows' text as it stands in a store. Every change of
// the rows passes through here, so that index and text stay in step. Each is made when it is first
// needed, follows rows that come and go, and is dropped by other changes. Without memory for one,
// commands walk the rows, with equal results.

#pragma once

#include "db_matching.h"
#include "db_rows.h"
#include "growing_array.h"
#include "velt_secure_db.h"

namespace zelkm {

class ObjectTable {
  public:
    const db_table_t& rows() const { return table_; }
    // Equal to what the object's source keeps as g_table_handle, while that is current.
    uint64_t handle() const { return table_.handle; }
    void setHandle(uint64_t handle) { table_.handle = handle; }

    // Takes `row` over as the last one.
    void append(db_row* row);

    // Releases all rows; the handle becomes 0.
    void clear();

    // Releases all rows and takes over those of `rows`. The handle becomes 0.
    void replace(db_table_t* rows);

    // To be called after values of rows were changed in place.
    void rowsChanged();

    // Calls action(row) for each row that satisfies all conditions, in the table's order. Needs no
    // memory.
    template <typename Action>
    void forEachMatching(const ConditionSet& conditions, Action action) {
        Filter filter;
        if (narrow(conditions, &filter)) {
            for (size_t i = 0; i < indexed_rows_.size(); ++i) {
                if (filter.admits(i) && check_condition_set(*indexed_rows_[i], conditions)) {
                    action(*indexed_rows_[i]);
                }
            }
            return;
        }
        for (const db_row* row = table_.head; row != nullptr; row = row->next) {
            if (check_condition_set(*row, conditions)) {
                action(*row);
            }
        }
    }

    // Releases the rows that satisfy all conditions, and answers how many they were. Needs no
    // memory.
    size_t remove(const ConditionSet& conditions);

    // The length of the store's payload, and the payload itself.
    size_t payloadLen();
    void writePayload(uint8_t* to) const;

  private:
    // The indexed rows that alone can satisfy conditions: those with an alias of this hash or,
    // where `by_accessor` is set, with this number among their accessors.
    struct Filter {
        const uint32_t* hashes;
        const NumberRange* ranges;
        bool by_accessor;
        uint32_t key;

        bool admits(size_t i) const {
            return by_accessor ? ranges[i].contains(key) : hashes[i] == key;
        }
    };

    // How far a removal has come: in rows, and in bytes of their text.
    struct Progress {
        size_t from;  // the row behind the last one that went
        size_t kept;  // rows that stay before it
        size_t text_from;
        size_t text_kept;
    };

    // Whether the index can leave rows out, and which.
    bool narrow(const ConditionSet& conditions, Filter* filter);
    void unlink(db_row* before, db_row* row);
    void closeGap(size_t end, Progress* progress);
    bool indexAliases();
    bool indexAccessors();
    bool addToIndex(db_row* row);
    void dropIndex();
    bool makeText();
    bool addToText(const db_row& row);
    void dropText();

    db_table_t table_ = {};

    // One element per row, in the table's order.
    GrowingArray<uint32_t> alias_hashes_;
    GrowingArray<db_row*> indexed_rows_;
    bool indexed_ = false;
    GrowingArray<NumberRange> accessor_ranges_;  // only when a condition has asked for one
    bool has_ranges_ = false;

    GrowingArray<uint8_t> text_;
    GrowingArray<uint32_t> text_lens_;  // of each row's part
    bool has_text_ = false;
};

}  // namespace zelkm
