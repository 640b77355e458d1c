// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The one rule by which texts are split at a separator.

#pragma once

#include <cstdint>
#include <string_view>

#include "find_byte.h"

namespace zelkm {

// Calls action(piece), with a view into `text`, for each piece between separators. Empty pieces
// count. A separator that ends the text is followed by no piece. An empty text is one empty piece.
template <typename Action>
void forEachPiece(std::string_view text, char separator, Action action) {
    const uint8_t* at = reinterpret_cast<const uint8_t*>(text.data());
    const uint8_t* const end = at + text.size();
    do {
        const uint8_t* const piece_end = findByte(at, end, static_cast<uint8_t>(separator));
        action(std::string_view(reinterpret_cast<const char*>(at),
                                static_cast<size_t>(piece_end - at)));
        at = piece_end != end ? piece_end + 1 : end;
    } while (at != end);
}

}  // namespace zelkm
