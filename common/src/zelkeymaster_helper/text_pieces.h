// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The one rule by which texts are split at a separator.

#pragma once

#include <algorithm>
#include <string_view>

namespace zelkm {

// Calls action(piece), with a view into `text`, for each piece between separators. Empty pieces
// count, except one after a separator that ends the text; an empty text is one empty piece.
template <typename Action>
void forEachPiece(std::string_view text, char separator, Action action) {
    size_t start = 0;
    do {
        const size_t end = std::min(text.find(separator, start), text.size());
        action(text.substr(start, end - start));
        start = end + 1;
    } while (start < text.size());
}

}  // namespace zelkm
