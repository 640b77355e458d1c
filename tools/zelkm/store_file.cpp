// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// See docs/store-format.md for the format.

#include "store_file.h"

#include <algorithm>
#include <utility>

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

constexpr char kSeparatorV10 = '|';
constexpr char kSeparator = 0x1E;
constexpr std::string_view kPayloadEnd("\0", 1);

uint32_t readLe32(std::string_view file, size_t offset) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<unsigned char>(file[offset + i]);
    }
    return value;
}

// Takes one row off the payload. False when the row does not end after six values.
bool takeRow(std::string_view* payload, char separator, std::vector<std::string>* row) {
    while (row->size() < kColumnNames.size()) {
        const size_t end = payload->find(separator);
        if (end == payload->npos) {
            return false;
        }
        row->emplace_back(payload->substr(0, end));
        payload->remove_prefix(end + 1);
    }
    if (payload->substr(0, 1) != "\n") {
        return false;
    }
    payload->remove_prefix(1);
    return true;
}

char separatorOf(const StoreHeader& header) {
    return header.magic == kMagicV10 ? kSeparatorV10 : kSeparator;
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
    StoreRows result;
    for (uint32_t number = 1; number <= header.row_count; ++number) {
        std::vector<std::string> row;
        if (!takeRow(&payload, separatorOf(header), &row)) {
            result.problem = "row " + std::to_string(number) + " of " +
                             std::to_string(header.row_count) +
                             (payload.size() <= 1 && row.empty() ? " is missing"
                                                                 : " does not end after 6 values");
            return result;
        }
        result.rows.push_back(std::move(row));
    }
    // One NUL ends a payload.
    if (payload != kPayloadEnd) {
        result.problem = std::to_string(payload.size()) + " bytes after row " +
                         std::to_string(header.row_count) + ", where one NUL is expected";
    }
    return result;
}

uint64_t minPayloadLen(uint32_t row_count) {
    constexpr uint64_t kMinRowLen = kColumnNames.size() + 1;  // separators and a line feed
    return row_count * kMinRowLen + kPayloadEnd.size();
}

std::optional<uint32_t> countStoreRows(std::string_view payload, const StoreHeader& header) {
    uint32_t count = 0;
    while (payload != kPayloadEnd) {
        std::vector<std::string> row;
        if (!takeRow(&payload, separatorOf(header), &row)) {
            return std::nullopt;
        }
        ++count;
    }
    return count;
}

std::string plainStore(const std::vector<std::vector<std::string>>& rows) {
    std::string file = kMagic;
    file.resize(kHeaderLen);
    for (const auto& row : rows) {
        for (const std::string& value : row) {
            file += value;
            file += kSeparator;
        }
        file += '\n';
    }
    file += kPayloadEnd;
    const size_t payload_len = file.size() - kHeaderLen;
    return withStoreHeader(std::move(file), false, static_cast<uint32_t>(rows.size()),
                           static_cast<uint32_t>(payload_len));
}

std::string withStoreHeader(std::string file, bool encrypted, uint32_t row_count,
                            uint32_t payload_len) {
    const auto put = [&file](size_t offset, uint32_t value) {
        for (size_t i = 0; i < 4; ++i) {
            file[offset + i] = static_cast<char>(value >> (8 * i) & 0xFF);
        }
    };
    put(kFlagsOffset, encrypted ? kEncryptedFlag : 0);
    put(kRowCountOffset, row_count);
    put(kPayloadLenOffset, payload_len);
    file.resize(std::min(file.size(), kHeaderLen + payload_len));
    return file;
}

}  // namespace zelkm_tool
