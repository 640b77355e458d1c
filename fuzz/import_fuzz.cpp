// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The reader of 'zelkm import', with any text. The objects that it finds must come back from CSV,
// from JSON and from a store.

#include <algorithm>
#include <sstream>
#include <vector>

#include "../tools/zelkm/failure.h"
#include "../tools/zelkm/object_reader.h"
#include "../tools/zelkm/output.h"
#include "../tools/zelkm/store_file.h"
#include "../tools/zelkm/store_values.h"
#include "fuzz.h"

namespace {

using zelkm_tool::kColumnNames;
using Rows = std::vector<std::vector<std::string>>;

// The good objects of a text that have any value.
Rows objectsOf(std::string_view text) {
    Rows rows;
    const auto take = [&rows](const std::string& place, std::vector<std::string>&& values,
                              const std::string& problem) {
        fuzz::require(!place.empty() && values.size() == kColumnNames.size());
        fuzz::require(std::none_of(problem.begin(), problem.end(),
                                   [](unsigned char c) { return c < ' ' || c == 0x7F; }));
        const bool empty = std::all_of(values.begin(), values.end(),
                                       [](const std::string& value) { return value.empty(); });
        if (problem.empty() && !empty) {
            rows.push_back(std::move(values));
        }
    };
    try {
        zelkm_tool::readObjects(text, take);
    } catch (const zelkm_tool::Refused&) {
        // Found in a text that cannot be read to its end.
    }
    return rows;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::Block block = fuzz::Input(data, size).rest();
    const Rows rows = objectsOf({block.text(), block.len});

    const zelkm_tool::Table table = {{kColumnNames.begin(), kColumnNames.end()}, rows};
    std::ostringstream csv;
    zelkm_tool::printCsv(csv, table);
    fuzz::require(objectsOf(csv.str()) == rows);
    std::ostringstream json;
    zelkm_tool::printJson(json, table);
    fuzz::require(objectsOf(json.str()) == rows);

    Rows writable;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(writable), [](const auto& row) {
        return std::none_of(row.begin(), row.end(), [](const std::string& value) {
            return zelkm_tool::bytesProblem(value).has_value();
        });
    });
    const std::string store = zelkm_tool::plainStore(writable);
    const auto header = zelkm_tool::parseStoreHeader(store);
    fuzz::require(header.has_value());
    const auto stored =
        zelkm_tool::parseStoreRows(zelkm_tool::storePayload(store, *header), *header, SIZE_MAX);
    fuzz::require(stored.whole && stored.rows == writable);
    return 0;
}
