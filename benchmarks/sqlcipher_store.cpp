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

void SqlcipherStore::create(const std::string& path, const std::vector<Row>& rows) {
    std::filesystem::remove(path);
    SqlcipherStore store(path);
    store.execute(
        "CREATE TABLE objects (alias TEXT, creator TEXT, admin TEXT, accessor TEXT,"
        " creator_uid TEXT, priv_acc TEXT)");
    store.execute("CREATE INDEX objects_by_alias ON objects (alias)");
    store.execute("BEGIN");
    for (const Row& row : rows) {
        store.insert(row);
    }
    store.execute("COMMIT");
}

void SqlcipherStore::insert(const Row& row) {
    if (insert_ == nullptr) {
        insert_ = prepare("INSERT INTO objects VALUES (?, ?, ?, ?, ?, ?)");
    }
    for (size_t i = 0; i < row.size(); ++i) {
        bindText(insert_.get(), static_cast<int>(i) + 1, row[i]);
    }
    runOnce(insert_.get());
}

void SqlcipherStore::remove(const std::string& alias) {
    if (remove_ == nullptr) {
        remove_ = prepare("DELETE FROM objects WHERE alias = ?");
    }
    bindText(remove_.get(), 1, alias);
    runOnce(remove_.get());
}

std::string SqlcipherStore::selectText(const std::string& alias) {
    return selectAllText() + " WHERE alias = '" + alias + "'";
}

std::string SqlcipherStore::selectAllText() {
    return "SELECT alias, creator, admin, accessor, creator_uid, priv_acc FROM objects";
}

void SqlcipherStore::select(const std::string& sql, std::vector<std::string>* texts) {
    const Statement statement = prepare(sql);
    while (sqlite3_step(statement.get()) == SQLITE_ROW) {
        std::string& text = texts->emplace_back();
        for (int i = 0; i < SDB_NUM_COLUMNS; ++i) {
            const void* value = sqlite3_column_text(statement.get(), i);
            text.append(static_cast<const char*>(value),
                        static_cast<size_t>(sqlite3_column_bytes(statement.get(), i)));
            text += kFieldEnd;
        }
    }
    check(sqlite3_reset(statement.get()) == SQLITE_OK, sqlite3_errmsg(database_.get()));
}

size_t SqlcipherStore::count() {
    const Statement statement = prepare("SELECT count(*) FROM objects");
    check(sqlite3_step(statement.get()) == SQLITE_ROW, sqlite3_errmsg(database_.get()));
    return static_cast<size_t>(sqlite3_column_int64(statement.get(), 0));
}

void SqlcipherStore::execute(const char* sql) {
    check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK,
          sqlite3_errmsg(database_.get()));
}

SqlcipherStore::Statement SqlcipherStore::prepare(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_.get(), sql.data(), static_cast<int>(sql.size()), &statement,
                             nullptr) == SQLITE_OK,
          sqlite3_errmsg(database_.get()));
    return Statement(statement);
}

}  // namespace bench
