// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_rows.h"

#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

namespace zelkm {

namespace {

void releaseValue(db_column_value_t* value) {
    OPENSSL_cleanse(value->data, value->len);
    std::free(value->data);
    *value = {};
}

}  // namespace

void cacheColumnNameLengths() {
    for (db_column_schema_t& column : column_schema) {
        column.name_len = static_cast<uint32_t>(std::strlen(column.name));
    }
}

uint8_t findColumn(const db_token_t& name) {
    for (uint8_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        const db_column_schema_t& column = column_schema[i];
        if (name.len == column.name_len &&
            (name.len == 0 || std::memcmp(name.token, column.name, name.len) == 0)) {
            return i;
        }
    }
    return kNoColumn;
}

db_row* newRow() {
    return static_cast<db_row*>(std::calloc(1, sizeof(db_row)));
}

void free_row(db_row* row) {
    if (row == nullptr) {
        return;
    }
    for (size_t i = 0; i < SDB_NUM_COLUMNS; ++i) {
        if (holdsBytes(i) && (row->col[i].flags & kValuePresent) != 0) {
            releaseValue(&row->col[i]);
        }
    }
    std::free(row);
}

bool setValue(db_row* row, size_t column, const uint8_t* data, uint32_t len) {
    db_column_value_t& value = row->col[column];
    releaseValue(&value);
    return copyValue(data, len, &value);
}

}  // namespace zelkm
