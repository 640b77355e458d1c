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

    // Makes the table with `rows`, in a transaction, and reopens it.
    static void create(const std::string& path, const std::vector<Row>& rows);

    // One transaction each, with a statement prepared once.
    void insert(const Row& row);
    void remove(const std::string& alias);

    static std::string selectText(const std::string& alias);  // SQL
    static std::string selectAllText();

    // Prepares and runs a select; appends one string per row to `texts`, as SodSelect() does.
    void select(const std::string& sql, std::vector<std::string>* texts);

    size_t count();

  private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    void execute(const char* sql);
    Statement prepare(const std::string& sql);

    std::unique_ptr<sqlite3, Close> database_;
    Statement insert_;
    Statement remove_;
};

}  // namespace bench
