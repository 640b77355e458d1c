// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_store_format.h"

#include <cstring>

namespace zelkm {
namespace {

constexpr char kMagicV10[] = "SOBv1.0     ";
constexpr uint8_t kSeparatorV10 = '|';
constexpr uint8_t kSeparator = 0x1E;

static_assert(sizeof(kMagic) - 1 == kMagicLen && sizeof(kMagicV10) - 1 == kMagicLen);

void writeLe32(uint32_t value, uint8_t* to) {
    for (int i = 0; i < 4; ++i) {
        to[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

}  // namespace

uint32_t readLe32(const uint8_t* from) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8 | from[i];
    }
    return value;
}

uint8_t separatorOf(const uint8_t* magic) {
    return std::memcmp(magic, kMagicV10, kMagicLen) == 0 ? kSeparatorV10 : kSeparator;
}

void writeHeader(uint8_t* header, uint32_t flags, uint32_t row_count, uint32_t payload_len) {
    std::memset(header, 0, kHeaderLen);
    std::memcpy(header, kMagic, kMagicLen);
    writeLe32(flags, header + kFlagsOffset);
    writeLe32(row_count, header + kRowCountOffset);
    writeLe32(payload_len, header + kPayloadLenOffset);
}

size_t encodedLen(const db_row& row, const ColumnList& columns) {
    size_t len = 1;
    for (const uint8_t column : columns) {
        len += size_t{row.col[column].len} + 1;
    }
    return len;
}

uint8_t* encodeRow(const db_row& row, const ColumnList& columns, uint8_t* to) {
    for (const uint8_t column : columns) {
        const db_column_value_t& value = row.col[column];
        if (value.len != 0) {
            std::memcpy(to, value.data, value.len);
        }
        to += value.len;
        *to++ = kSeparator;
    }
    *to++ = kRowEnd;
    return to;
}

}  // namespace zelkm
