// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Rows, and lookups in their column schema. A row owns its values, which are wiped before they are
// released.

#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "velt_secure_db.h"

namespace zelkm {

inline constexpr uint32_t kValuePresent = 1;  // bit of db_column_value_t::flags
inline constexpr uint8_t kNoColumn = 255;     // instead of an index when the name is unknown

// Stores the lengths of the names in the schema. Before that no column is found by its name.
void cacheColumnNameLengths();

// The index of the column with exactly this name, or kNoColumn.
uint8_t findColumn(const db_token_t& name);

// Whether a value of this column can be stored.
inline bool holdsBytes(size_t column) {
    return (column_schema[column].flags & SDB_TYPE_BYTES) != 0;
}

// A new row without values; null when out of memory. Released with free_row().
db_row* newRow();

// Wipes and releases a row and its values. Null is allowed.
void free_row(db_row* row);

// Gives an absent value a copy of the bytes. False when out of memory: the value is then still
// absent.
[[nodiscard]] inline bool copyValue(const uint8_t* data, uint32_t len, db_column_value_t* value) {
    if (len != 0) {
        value->data = static_cast<uint8_t*>(std::malloc(len));
        if (value->data == nullptr) {
            return false;
        }
        std::memcpy(value->data, data, len);
    }
    value->len = len;
    value->flags = kValuePresent;
    return true;
}

// Replaces the column's value by a copy of the bytes. False when out of memory: the value is then
// absent.
[[nodiscard]] bool setValue(db_row* row, size_t column, const uint8_t* data, uint32_t len);

}  // namespace zelkm
