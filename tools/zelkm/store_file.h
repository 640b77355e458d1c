// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads the bytes of a store file with the library's reader of the format, and without a key, or
// with the library's engine. The functions take any bytes.

#pragma once

#include <db_store_format.h>
#include <malloc_buffer.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct StoreHeader {
    std::string magic;  // blanks at the end included
    uint32_t flags;
    std::string tag;
    std::string iv;
    uint32_t row_count;
    uint32_t payload_len;

    bool encrypted() const { return (flags & zelkm::kPayloadEncrypted) != 0; }
};

// What the engine returns for a command: rows, or a new store. No data without memory for it.
struct EngineOutput {
    int status;
    zelkm::MallocBuffer data;
    size_t len;

    std::string_view text() const { return {reinterpret_cast<const char*>(data.get()), len}; }
};

// Runs a command on this store, in a table of its own.
EngineOutput runEngine(std::string_view command, std::string_view store);

// Nothing when `file` is shorter than a header.
std::optional<StoreHeader> parseStoreHeader(std::string_view file);

// The header, unless a part of the payload is missing.
std::optional<StoreHeader> wholeStoreHeader(std::string_view file);

// The bytes of the payload that are there, at most `payload_len`.
std::string_view storePayload(std::string_view file, const StoreHeader& header);

struct StoreRows {
    uint32_t count;                              // up to the first that is none, or to the end
    bool whole;                                  // the text is nothing but rows and a NUL
    std::vector<std::vector<std::string>> rows;  // the first ones
};

// Reads rows of as many values, each up to its separator, so that it may hold a line feed. Keeps no
// more than `max_kept` of them.
StoreRows readRows(std::string_view text, uint8_t separator, size_t num_columns, size_t max_kept);

// Reads the rows of a plaintext payload, whatever the header's row count is.
StoreRows parseStoreRows(std::string_view payload, const StoreHeader& header, size_t max_kept = 0);

// The length of the smallest payload with that many rows: all values are empty.
uint64_t minPayloadLen(uint32_t row_count);

// A plaintext store of these rows, six values each.
std::string plainStore(const std::vector<std::vector<std::string>>& rows);

// The file with another header, and without the bytes after the payload. `file` must have a header.
std::string withStoreHeader(std::string file, bool encrypted, uint32_t row_count,
                            uint32_t payload_len);

}  // namespace zelkm_tool
