// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads the bytes of a store file. See store_file.h, and docs/store-format.md for the format.

#include "store_file.h"

#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMagicLen = 12;
constexpr size_t kFlagsOffset = 12;
constexpr size_t kTagOffset = 16;
constexpr size_t kTagLen = 16;
constexpr size_t kIvOffset = 32;
constexpr size_t kIvLen = 12;
constexpr size_t kRowCountOffset = 44;
constexpr size_t kPayloadLenOffset = 48;
constexpr size_t kHeaderLen = 52;

constexpr std::string_view kMagicV10 = "SOBv1.0     ";
constexpr char kSeparatorV10 = '|';
constexpr char kSeparator = 0x1E;

uint32_t readLe32(std::string_view file, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(file[offset + i]);
    }
    return value;
}

}  // namespace

std::optional<StoreHeader> parseStoreHeader(std::string_view file) {
    if (file.size() < kHeaderLen) {
        return std::nullopt;
    }
    StoreHeader header;
    header.magic = file.substr(0, kMagicLen);
    header.flags = readLe32(file, kFlagsOffset);
    header.tag = file.substr(kTagOffset, kTagLen);
    header.iv = file.substr(kIvOffset, kIvLen);
    header.row_count = readLe32(file, kRowCountOffset);
    header.payload_len = readLe32(file, kPayloadLenOffset);
    return header;
}

std::string_view storePayload(std::string_view file, const StoreHeader& header) {
    return file.size() < kHeaderLen ? std::string_view()
                                    : file.substr(kHeaderLen, header.payload_len);
}

StoreRows parseStoreRows(std::string_view payload, const StoreHeader& header) {
    const char separator = header.magic == kMagicV10 ? kSeparatorV10 : kSeparator;
    StoreRows result;
    for (uint32_t number = 1; number <= header.row_count; ++number) {
        std::vector<std::string> row;
        while (row.size() < kColumnNames.size()) {
            const size_t end = payload.find(separator);
            if (end == payload.npos) {
                break;
            }
            row.emplace_back(payload.substr(0, end));
            payload.remove_prefix(end + 1);
        }
        if (row.size() < kColumnNames.size() || payload.substr(0, 1) != "\n") {
            result.problem = "row " + std::to_string(number) + " of " +
                             std::to_string(header.row_count) +
                             (payload.size() <= 1 && row.empty() ? " is missing"
                                                                 : " does not end after 6 values");
            return result;
        }
        payload.remove_prefix(1);
        result.rows.push_back(std::move(row));
    }
    // The writer closes the rows with one NUL.
    if (payload != std::string_view("\0", 1)) {
        result.problem = std::to_string(payload.size()) + " bytes after row " +
                         std::to_string(header.row_count) + ", where one NUL is expected";
    }
    return result;
}

}  // namespace zelkm_tool
