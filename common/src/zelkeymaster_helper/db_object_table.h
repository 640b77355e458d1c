// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The process's one table, with two things derived from its rows that make commands cheap: an index
// of aliases, and the rows' text as it stands in a store. Every change of the rows passes through
// here, so that they stay in step. Each is made when it is first needed, follows rows that come and
// go, and is dropped by other changes. Without memory for one, commands walk the rows, with equal
// results.

#pragma once

#include "db_table.h"
#include "growing_array.h"
#include "velt_secure_db.h"

namespace zelkm {

class ObjectTable {
  public:
    const db_table_t& rows() const { return table_; }
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

    // Selects the rows that satisfy all conditions, until the rows change; needs no memory. Answers
    // how many they are.
    size_t select(const db_parsed_where_set_t& where);

    // Calls action(row) for each selected row, in the table's order.
    template <typename Action>
    void forEachSelected(Action action) const {
        if (!selected_by_alias_) {
            for (const db_row* row = table_.head; row != nullptr; row = row->next) {
                if (isMarked(row)) {
                    action(*row);
                }
            }
            return;
        }
        for (size_t i = first_candidate_; i < candidates_end_; ++i) {
            if (isCandidate(i) && isMarked(indexed_rows_[i])) {
                action(*indexed_rows_[i]);
            }
        }
    }

    // Releases the selected rows.
    void removeSelected();

    // The length of the store's payload, and the payload itself.
    size_t payloadLen();
    void writePayload(uint8_t* to) const;

  private:
    static constexpr uint32_t kSelected = 1;  // bit of db_row::flags

    static bool isMarked(const db_row* row) { return (row->flags & kSelected) != 0; }
    bool isCandidate(size_t i) const {
        return !selected_by_alias_ || (i >= first_candidate_ && i < candidates_end_ &&
                                       alias_hashes_[i] == candidates_hash_);
    }
    uint8_t* encodeRows(uint8_t* to) const;
    bool indexAliases();
    bool addToIndex(db_row* row);
    void dropIndex();
    bool addToText(const db_row& row);
    void dropText();

    db_table_t table_ = {};

    // One element per row, in the table's order.
    GrowingArray<uint32_t> alias_hashes_;
    GrowingArray<db_row*> indexed_rows_;
    bool indexed_ = false;

    // The candidates of a selection by alias are the indexed rows with its hash. Only candidates
    // have a selected bit with a meaning; without an alias all rows are candidates.
    bool selected_by_alias_ = false;
    uint32_t candidates_hash_ = 0;
    size_t first_candidate_ = 0;
    size_t candidates_end_ = 0;

    GrowingArray<uint8_t> text_;
    bool has_text_ = false;
};

}  // namespace zelkm
