// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "object_store.h"

#include <filesystem>
#include <fstream>
#include <utility>

#include "file_calls.h"
#include "support.h"
#include "velt_secure_db.h"

namespace bench {
namespace {

void skipFlush(int /*fd*/) {}

const auto realFlush = zelkm::g_file_calls.flush;

}  // namespace

SODOperationParam rowParam(const Row& row) {
    Row values = row;
    SODOperationParam param;
    param.setAlias(values[0]).setCreator(values[1]).setAdmin(values[2]).setAccessor(values[3]);
    param.setCreatorUid(values[4]).setPrivilegedAccess(!values[5].empty());
    return param;
}

SODOperationParam aliasParam(const Row& row) {
    std::string alias = row[0];
    SODOperationParam param;
    param.addAliasInWhere(alias);
    return param;
}

SODOperationParam& readAllColumns(SODOperationParam& param) {
    param.addAliasToOutput().addCreatorToOutput().addAdminToOutput().addAccessorToOutput();
    return param.addCreatorUidToOutput().addPrivilegedAccessToOutput();
}

void dropTable() {
    constexpr char kAnyCommand[] = "SELECT (ALIAS)";
    uint64_t handle = 0;
    check(sdb_query(kAnyCommand, sizeof(kAnyCommand) - 1, nullptr, 0, nullptr, nullptr, &handle) ==
              ZELKM_OK,
          "drop table");
}

void setFlush(bool flush) {
    zelkm::g_file_calls.flush = flush ? realFlush : skipFlush;
}

ObjectStore::ObjectStore(const Sample& sample, size_t max_update_bytes)
    : keymaster_(max_update_bytes) {
    mergeFreeBlocks();
    setFlush(false);
    std::filesystem::remove(std::string(kStoreFile) + ".bak");
    std::ofstream(kStoreFile, std::ios::binary | std::ios::trunc) << sample.image;
    dropTable();
    object_.emplace(&keymaster_, true);

    // The first changes encrypt it.
    choose(sample.extra);
    insert();
    remove();
    check(std::filesystem::file_size(kStoreFile) == sample.image.size(), "store file");
    dropTable();
    mergeFreeBlocks();
    check(rows() == sample.texts(), "rows");
}

void ObjectStore::choose(const Row& row) {
    row_ = rowParam(row);
    alias_ = aliasParam(row);
}

Texts ObjectStore::rows() {
    dropTable();
    SODOperationParam everything;
    Texts texts;
    select(readAllColumns(everything), &texts);
    return withoutEnd(std::move(texts));
}

Texts withoutEnd(Texts texts) {
    check(!texts.empty() && texts.back() == std::string(1, '\0'), "last text");
    texts.pop_back();
    return texts;
}

}  // namespace bench
