// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store blob: a header of 52 bytes, integers little-endian, and the rows as text.
//
//   offset size field
//        0   12 magic        "SOBv1.1" and five blanks; "SOBv1.0" and five blanks is read as well
//       12    4 flags        bit 0: the payload is encrypted
//       16   16 tag          of the encryption, else zeros
//       32   12 iv           of the encryption, else zeros
//       44    4 row_count
//       48    4 payload_len  bytes after the header
//       52      payload      per row six values in schema order, each followed by the
//                            separator, then a line feed; after all rows one NUL
//
// The separator is 0x1E, and '|' in version 1.0. Values are raw bytes, without escaping; an absent
// value and an empty one look the same. docs/store-format.md has an annotated dump.

#pragma once

#include <cstddef>

#include "db_rows.h"
#include "find_byte.h"
#include "velt_secure_db.h"

namespace zelkm {

inline constexpr size_t kMagicLen = SDB_AAD_LEN;
inline constexpr size_t kFlagsOffset = 12;
inline constexpr size_t kTagOffset = 16;
inline constexpr size_t kIvOffset = 32;
inline constexpr size_t kRowCountOffset = 44;
inline constexpr size_t kPayloadLenOffset = 48;
inline constexpr size_t kHeaderLen = 52;

inline constexpr uint32_t kPayloadEncrypted = 1;  // bit of the flags field

inline constexpr uint8_t kRowEnd = '\n';

// The magic that is written, SDB_AAD_LEN bytes.
inline constexpr char kMagic[] = "SOBv1.1     ";

uint32_t readLe32(const uint8_t* from);

// The field separator of a store with this magic (kMagicLen bytes).
uint8_t separatorOf(const uint8_t* magic);

// Fills the header of a new store; tag and iv are zero.
void writeHeader(uint8_t* header, uint32_t flags, uint32_t row_count, uint32_t payload_len);

// Reads the rows of a payload from front to back, never beyond its end. Bytes after the last row
// are the caller's to ignore.
class PayloadReader {
  public:
    PayloadReader(const uint8_t* payload, size_t len, uint8_t separator)
        : at_(payload), end_(payload + len), separator_(separator) {}

    // Copies what lies before the next separator into an absent value; without a separator, all
    // that is left. False when out of memory.
    [[nodiscard]] bool takeValue(db_column_value_t* value) {
        const uint8_t* const value_end = findByte(at_, end_, separator_);
        const uint32_t len = static_cast<uint32_t>(value_end - at_);
        const bool copied = copyValue(at_, len, value);
        at_ = value_end != end_ ? value_end + 1 : end_;
        return copied;
    }

    // False when another byte than the line feed that ends a row comes next. Returns the byte; 0 at
    // the end of the payload.
    [[nodiscard]] bool takeRowEnd(uint8_t* found) {
        *found = at_ != end_ ? *at_++ : uint8_t{0};
        return *found == kRowEnd;
    }

    // The bytes that were not read yet.
    size_t left() const { return static_cast<size_t>(end_ - at_); }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
    const uint8_t separator_;
};

// The columns of a text, in order.
struct ColumnList {
    uint8_t columns[SDB_MAX_TOKENS];
    uint32_t count;

    const uint8_t* begin() const { return columns; }
    const uint8_t* end() const { return columns + count; }
};

constexpr ColumnList allColumns() {
    ColumnList all = {};
    while (all.count < SDB_NUM_COLUMNS) {
        all.columns[all.count] = static_cast<uint8_t>(all.count);
        ++all.count;
    }
    return all;
}

inline constexpr ColumnList kAllColumns = allColumns();

// The length of a row's text, and the text itself: the values of the columns, each followed by the
// separator of version 1.1, and a line feed. Returns the address after it.
size_t encodedLen(const db_row& row, const ColumnList& columns);
uint8_t* encodeRow(const db_row& row, const ColumnList& columns, uint8_t* to);

}  // namespace zelkm
