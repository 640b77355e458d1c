// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "sqlcipher_store.h"

#include <filesystem>

#include "support.h"

namespace bench {
namespace {

// In the form that stands for 32 raw bytes.
constexpr char kKey[] = "x'000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f'";

void bindText(sqlite3_stmt* statement, int position, const std::string& text) {
    check(sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC) == SQLITE_OK,
          "bind");
}

void runOnce(sqlite3_stmt* statement) {
    check(sqlite3_step(statement) == SQLITE_DONE && sqlite3_reset(statement) == SQLITE_OK,
          sqlite3_errmsg(sqlite3_db_handle(statement)));
}

}  // namespace

SqlcipherStore::SqlcipherStore(const std::string& path) {
    sqlite3* database = nullptr;
    const int status = sqlite3_open(path.c_str(), &database);
    database_.reset(database);
    check(status == SQLITE_OK && sqlite3_key(database, kKey, sizeof(kKey) - 1) == SQLITE_OK,
          "open database");
}

SqlcipherStore SqlcipherStore::create(const std::string& path, const std::vector<Row>& rows) {
    std::filesystem::remove(path);
    SqlcipherStore store(path);
    store.execute(
        "CREATE TABLE objects (alias TEXT, creator TEXT, admin TEXT, accessor TEXT,"
        " creator_uid TEXT, priv_acc TEXT)");
    store.execute("CREATE INDEX objects_by_alias ON objects (alias)");
    store.execute("BEGIN");
    for (const Row& row : rows) {
        store.choose(row);
        store.insert();
    }
    store.execute("COMMIT");
    return SqlcipherStore(path);
}

void SqlcipherStore::choose(const Row& row) {
    row_ = &row;
    if (insert_ == nullptr) {
        insert_ = prepare("INSERT INTO objects VALUES (?, ?, ?, ?, ?, ?)");
        remove_ = prepare("DELETE FROM objects WHERE alias = ?");
    }
}

void SqlcipherStore::insert() {
    int position = 0;
    for (const std::string& value : *row_) {
        bindText(insert_.get(), ++position, value);
    }
    runOnce(insert_.get());
}

void SqlcipherStore::remove() {
    bindText(remove_.get(), 1, (*row_)[0]);
    runOnce(remove_.get());
}

std::string SqlcipherStore::selectText(const std::string& alias) {
    return kSelectAll + std::string(" WHERE alias = '") + alias + "'";
}

void SqlcipherStore::select(const char* sql, Texts* texts) {
    run(prepare(sql).get(), texts);
}

void SqlcipherStore::find(const std::string& alias, Texts* texts) {
    if (find_ == nullptr) {
        find_ = prepare((kSelectAll + std::string(" WHERE alias = ?")).c_str());
    }
    bindText(find_.get(), 1, alias);
    run(find_.get(), texts);
}

void SqlcipherStore::run(sqlite3_stmt* select, Texts* texts) {
    while (sqlite3_step(select) == SQLITE_ROW) {
        std::string& text = texts->emplace_back();
        for (int i = 0; i < SDB_NUM_COLUMNS; ++i) {
            const void* value = sqlite3_column_text(select, i);
            text.append(static_cast<const char*>(value),
                        static_cast<size_t>(sqlite3_column_bytes(select, i)));
            text += kFieldEnd;
        }
    }
    check(sqlite3_reset(select) == SQLITE_OK, sqlite3_errmsg(database_.get()));
}

size_t SqlcipherStore::count() {
    Texts texts;
    select(kSelectAll, &texts);
    return texts.size();
}

void SqlcipherStore::execute(const char* sql) {
    check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK,
          sqlite3_errmsg(database_.get()));
}

SqlcipherStore::Statement SqlcipherStore::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr) == SQLITE_OK,
          sqlite3_errmsg(database_.get()));
    return Statement(statement);
}

}  // namespace bench
