// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A search for the fields of stored texts, which are so short that a call of memchr() takes longer
// than the search.

#pragma once

#include <cstdint>
#include <cstring>

namespace zelkm {

// The first `byte` from `at` on, or `end`. Looks at eight bytes at a time: `same` has a zero byte
// where the text has `byte`, and the lowest bit of `found` marks the first of them.
inline const uint8_t* findByte(const uint8_t* at, const uint8_t* end, uint8_t byte) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    constexpr uint64_t kOnes = 0x0101010101010101;
    while (end - at >= 8) {
        uint64_t same = 0;
        std::memcpy(&same, at, sizeof(same));
        same ^= kOnes * byte;
        uint64_t less = 0;
        static_cast<void>(__builtin_sub_overflow(same, kOnes, &less));  // wraps, unlike '-'
        const uint64_t found = less & ~same & (kOnes << 7);
        if (found != 0) {
            return at + __builtin_ctzll(found) / 8;
        }
        at += 8;
    }
    while (at != end && *at != byte) {
        ++at;
    }
    return at;
}

}  // namespace zelkm
