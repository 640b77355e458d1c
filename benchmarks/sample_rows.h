// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The rows that everything is measured with: random, and the same in every run.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "velt_secure_db.h"

namespace bench {

inline constexpr char kFieldEnd = 0x1E;
inline constexpr char kRowEnd = '\n';

// A caller whom about one in eighty rows lets in, by its range of ACCESSOR.
inline constexpr char kAccessor[] = "55555";
inline constexpr uint32_t kAccessorNumber = 55555;

inline constexpr size_t kProbes = 64;  // aliases that a select looks for in turn

using Texts = std::vector<std::string>;
using Row = std::array<std::string, SDB_NUM_COLUMNS>;  // in the order of the columns

// A row's text as the store and a select of all columns have it, without its line feed.
std::string encodeRow(const Row& row);

// A store of rows of 60 bytes on average, with distinct aliases. The rows of a smaller one are the
// first of a larger one's.
struct Sample {
    explicit Sample(size_t count);

    std::vector<Row> rows;
    Row extra;            // a row that is not in the store
    std::string payload;  // all rows' texts and the final NUL
    std::string image;    // a store blob with the payload in plain text

    // The index of a row; fixed for each `step`, and without a pattern from one to the next.
    size_t pick(uint64_t step) const;

    // What a select of all rows and columns finds.
    Texts texts() const;
};

inline const uint8_t* bytesOf(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

}  // namespace bench
