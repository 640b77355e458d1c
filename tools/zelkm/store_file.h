// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads the bytes of a store file without the library and without a key. Pure functions that take
// any bytes: nothing outside them is read, whatever their length fields claim.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct StoreHeader {
    std::string magic;  // 12 bytes, blanks at the end included
    uint32_t flags;
    std::string tag;  // 16 bytes
    std::string iv;   // 12 bytes
    uint32_t row_count;
    uint32_t payload_len;

    bool encrypted() const { return (flags & 1) != 0; }
};

// Nothing when `file` is shorter than a header.
std::optional<StoreHeader> parseStoreHeader(std::string_view file);

// What is left of the payload after the header, at most `payload_len` bytes.
std::string_view storePayload(std::string_view file, const StoreHeader& header);

struct StoreRows {
    std::vector<std::vector<std::string>> rows;  // six values each, up to the first bad row
    std::string problem;                         // empty when all the header's rows were there
};

// Reads the rows of a plaintext payload.
StoreRows parseStoreRows(std::string_view payload, const StoreHeader& header);

}  // namespace zelkm_tool
