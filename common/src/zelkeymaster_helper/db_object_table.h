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

using RowList = GrowingArray<db_row*>;

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

    // Releases the given rows, which must be in the table's order.
    void remove(const RowList& rows);

    // To be called after values of rows were changed in place.
    void rowsChanged();

    // Appends the rows that satisfy all conditions, in the table's order. False when out of memory.
    [[nodiscard]] bool collect(const db_parsed_where_set_t& where, RowList* found);

    // The length of the store's payload, and the payload itself.
    size_t payloadLen();
    void writePayload(uint8_t* to) const;

  private:
    uint8_t* encodeRows(uint8_t* to) const;
    bool indexAliases();
    bool addToIndex(db_row* row);
    void dropIndex();
    bool addToText(const db_row& row);
    void dropText();

    db_table_t table_ = {};

    // One element per row, in the table's order.
    GrowingArray<uint32_t> alias_hashes_;
    RowList indexed_rows_;
    bool indexed_ = false;

    GrowingArray<uint8_t> text_;
    bool has_text_ = false;
};

}  // namespace zelkm
