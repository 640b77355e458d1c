// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "object_store.h"

#include <filesystem>
#include <fstream>

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

FlushSwitch::FlushSwitch(bool flush) : before_(zelkm::g_file_calls.flush) {
    zelkm::g_file_calls.flush = flush ? realFlush : skipFlush;
}

FlushSwitch::~FlushSwitch() {
    zelkm::g_file_calls.flush = before_;
}

ObjectStore::ObjectStore(const Sample& sample, size_t max_update_bytes)
    : keymaster_(max_update_bytes) {
    mergeFreeBlocks();
    const FlushSwitch unflushed(false);
    std::filesystem::remove(std::string(kStoreFile) + ".bak");
    std::ofstream(kStoreFile, std::ios::binary | std::ios::trunc) << sample.image;
    dropTable();
    object_.emplace(&keymaster_, true);

    // The first changes encrypt it.
    SODOperationParam row = rowParam(sample.extra);
    SODOperationParam alias = aliasParam(sample.extra);
    check(object_->SodInsert(row) == ZELKM_OK && object_->SodDelete(alias) == ZELKM_OK,
          "encrypt the store");
    check(std::filesystem::file_size(kStoreFile) == sample.image.size(), "store file");
    dropTable();
    mergeFreeBlocks();
    check(all() == expectedTexts(sample), "rows");
}

ObjectStore::~ObjectStore() {
    dropTable();
}

Texts ObjectStore::all(ZelKeymasterOperation& object) {
    SODOperationParam everything;
    Texts texts;
    check(object.SodSelect(readAllColumns(everything), texts) == ZELKM_OK, "SodSelect");
    return texts;
}

Texts expectedTexts(const Sample& sample) {
    Texts texts;
    for (const Row& row : sample.rows) {
        texts.push_back(encodeRow(row));
    }
    texts.push_back(std::string(1, '\0'));
    return texts;
}

}  // namespace bench
