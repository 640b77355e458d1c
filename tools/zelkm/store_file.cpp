// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_file.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace zelkm_tool {
namespace {

const uint8_t* bytesOf(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

std::string takeValue(zelkm::PayloadReader* reader) {
    db_column_value_t value = {};
    if (!reader->takeValue(&value)) {
        throw std::bad_alloc();
    }
    const zelkm::MallocBuffer owned(value.data);
    std::string text;
    std::copy_n(value.data, value.len, std::back_inserter(text));
    return text;
}

}  // namespace

EngineOutput runEngine(std::string_view command, std::string_view store) {
    unsigned char* out = nullptr;
    unsigned len = 0;
    uint64_t handle = 0;
    const int status =
        sdb_query(command.data(), static_cast<unsigned>(command.size()), bytesOf(store),
                  static_cast<unsigned>(store.size()), &out, &len, &handle);
    return {status, zelkm::MallocBuffer(out), len};
}

std::optional<StoreHeader> parseStoreHeader(std::string_view file) {
    if (file.size() < zelkm::kHeaderLen) {
        return std::nullopt;
    }
    const auto number = [&](size_t at) { return zelkm::readLe32(bytesOf(file.substr(at))); };
    const auto text = [&](size_t at, size_t len) { return std::string(file.substr(at, len)); };
    return StoreHeader{text(0, zelkm::kMagicLen),
                       number(zelkm::kFlagsOffset),
                       text(zelkm::kTagOffset, SDB_TAG_LEN),
                       text(zelkm::kIvOffset, SDB_IV_LEN),
                       number(zelkm::kRowCountOffset),
                       number(zelkm::kPayloadLenOffset)};
}

std::optional<StoreHeader> wholeStoreHeader(std::string_view file) {
    const std::optional<StoreHeader> header = parseStoreHeader(file);
    const bool is_whole = header && storePayload(file, *header).size() == header->payload_len;
    return is_whole ? header : std::nullopt;
}

std::string_view storePayload(std::string_view file, const StoreHeader& header) {
    return file.substr(std::min(zelkm::kHeaderLen, file.size()), header.payload_len);
}

StoreRows parseStoreRows(std::string_view payload, const StoreHeader& header, size_t max_kept) {
    return readRows(payload, zelkm::separatorOf(bytesOf(header.magic)), SDB_NUM_COLUMNS, max_kept);
}

StoreRows readRows(std::string_view text, uint8_t separator, size_t num_columns, size_t max_kept) {
    zelkm::PayloadReader reader(bytesOf(text), text.size(), separator);
    StoreRows result = {};
    while (reader.left() > 1) {
        std::vector<std::string> row;
        while (row.size() < num_columns) {
            row.push_back(takeValue(&reader));
        }
        uint8_t end = 0;
        if (!reader.takeRowEnd(&end)) {
            return result;
        }
        ++result.count;
        if (result.rows.size() < max_kept) {
            result.rows.push_back(std::move(row));
        }
    }
    result.whole = reader.left() == 1 && text.back() == '\0';
    return result;
}

uint64_t minPayloadLen(uint32_t row_count) {
    return zelkm::encodedLen(db_row(), zelkm::kAllColumns) * uint64_t{row_count} + 1;  // and a NUL
}

std::string plainStore(const std::vector<std::vector<std::string>>& rows) {
    std::string file =
        std::string(zelkm::kMagic) + std::string(zelkm::kHeaderLen - zelkm::kMagicLen, '\0');
    const char separator = static_cast<char>(zelkm::separatorOf(bytesOf(zelkm::kMagic)));
    for (const auto& row : rows) {
        for (const std::string& value : row) {
            file += value + separator;
        }
        file += static_cast<char>(zelkm::kRowEnd);
    }
    file += '\0';
    const size_t payload_len = file.size() - zelkm::kHeaderLen;
    return withStoreHeader(std::move(file), false, static_cast<uint32_t>(rows.size()),
                           static_cast<uint32_t>(payload_len));
}

std::string withStoreHeader(std::string file, bool encrypted, uint32_t row_count,
                            uint32_t payload_len) {
    uint8_t header[zelkm::kHeaderLen];
    zelkm::writeHeader(header, encrypted ? zelkm::kPayloadEncrypted : 0, row_count, payload_len);
    std::copy(header + zelkm::kFlagsOffset, header + zelkm::kTagOffset,
              file.begin() + zelkm::kFlagsOffset);
    std::copy(header + zelkm::kRowCountOffset, header + zelkm::kHeaderLen,
              file.begin() + zelkm::kRowCountOffset);
    file.resize(std::min(file.size(), zelkm::kHeaderLen + payload_len));
    return file;
}

}  // namespace zelkm_tool
