// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The peer: the same rows in an SQLCipher database, one table of six text columns with an index on
// the alias, everything else as SQLCipher has it by default.
//
// The key is given raw, since a device would take it from its keymaster: no time goes into deriving
// it from a passphrase.

#pragma once

#include <sqlcipher/sqlite3.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "sample_rows.h"

namespace bench {

class SqlcipherStore {
  public:
    // Opens the database without reading it.
    explicit SqlcipherStore(const std::string& path);

    // Makes the database with `rows`, in one transaction, and reopens it.
    static SqlcipherStore create(const std::string& path, const std::vector<Row>& rows);

    // The row that insert() and remove() take; it must outlive them.
    void choose(const Row& row);

    // One transaction each, with a statement prepared once.
    void insert();
    void remove();

    static constexpr char kSelectAll[] =
        "SELECT alias, creator, admin, accessor, creator_uid, priv_acc FROM objects";
    static std::string selectText(const std::string& alias);

    // Prepares and runs a select; appends one string per row to `texts`, as SodSelect() does.
    void select(const char* sql, Texts* texts);

    // The same by an alias, with a statement prepared once.
    void find(const std::string& alias, Texts* texts);

    size_t count();

  private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    void execute(const char* sql);
    Statement prepare(const char* sql);
    void run(sqlite3_stmt* select, Texts* texts);

    std::unique_ptr<sqlite3, Close> database_;
    const Row* row_ = nullptr;
    Statement insert_;
    Statement remove_;
    Statement find_;
};

}  // namespace bench
