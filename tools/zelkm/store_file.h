// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads the bytes of a store file without the library and without a key. The functions take any
// bytes, and never read beyond them, whatever the length fields claim.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

inline constexpr size_t kHeaderLen = 52;
inline constexpr uint32_t kEncryptedFlag = 1;
inline constexpr char kMagic[] = "SOBv1.1     ";
inline constexpr char kMagicV10[] = "SOBv1.0     ";

struct StoreHeader {
    std::string magic;  // 12 bytes, blanks at the end included
    uint32_t flags;
    std::string tag;  // 16 bytes
    std::string iv;   // 12 bytes
    uint32_t row_count;
    uint32_t payload_len;

    bool encrypted() const { return (flags & kEncryptedFlag) != 0; }
};

// Nothing when `file` is shorter than a header.
std::optional<StoreHeader> parseStoreHeader(std::string_view file);

// The bytes of the payload that are there, at most `payload_len`.
std::string_view storePayload(std::string_view file, const StoreHeader& header);

struct StoreRows {
    std::vector<std::vector<std::string>> rows;  // six values each; up to the first bad row
    std::string problem;                         // empty when the payload is as the header says
};

// Reads the rows of a plaintext payload.
StoreRows parseStoreRows(std::string_view payload, const StoreHeader& header);

// The length of the smallest payload with that many rows: all values are empty.
uint64_t minPayloadLen(uint32_t row_count);

// The number of rows in a payload, whatever the header says. Nothing when the payload is anything
// but rows and one NUL.
std::optional<uint32_t> countStoreRows(std::string_view payload, const StoreHeader& header);

// A plaintext store of these rows, six values each.
std::string plainStore(const std::vector<std::vector<std::string>>& rows);

// The file with another header, and without the bytes after the payload. `file` must have a header.
std::string withStoreHeader(std::string file, bool encrypted, uint32_t row_count,
                            uint32_t payload_len);

}  // namespace zelkm_tool
