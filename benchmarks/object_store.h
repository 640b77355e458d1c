// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A ZelKeymasterOperation with a sample in its encrypted store, in the working directory.

#pragma once

#include <cstddef>
#include <optional>

#include "bare_keymaster.h"
#include "sample_rows.h"
#include "zelkeymaster_operation.h"

namespace bench {

inline constexpr char kStoreFile[] = "secure_objects.db";

// Parameters for a row as a whole, and for a condition on its alias.
SODOperationParam rowParam(const Row& row);
SODOperationParam aliasParam(const Row& row);

// Adds all columns to what a select puts out.
SODOperationParam& readAllColumns(SODOperationParam& param);

// Forgets the engine's table, so that the next query of any object loads its image.
void dropTable();

// Leaves the flush out from now on, or puts it back in.
void setFlush(bool flush);

class ObjectStore {
  public:
    // Replaces the files of an earlier store, save the database key's, and leaves the flush out.
    explicit ObjectStore(const Sample& sample, size_t max_update_bytes = 0);
    ~ObjectStore() { dropTable(); }
    ObjectStore(const ObjectStore&) = delete;
    ObjectStore& operator=(const ObjectStore&) = delete;

    BareKeymaster& keymaster() { return keymaster_; }
    ZelKeymasterOperation& object() { return *object_; }

    // The row that insert() and remove() take.
    void choose(const Row& row);
    void insert() { check(object_->SodInsert(row_) == ZELKM_OK, "SodInsert"); }
    void remove() { check(object_->SodDelete(alias_) == ZELKM_OK, "SodDelete"); }

    void select(SODOperationParam& param, Texts* texts) {
        check(object_->SodSelect(param, *texts) == ZELKM_OK, "SodSelect");
    }

    // All rows and columns of the store's file.
    Texts rows();
    size_t count() { return rows().size(); }

  private:
    BareKeymaster keymaster_;
    std::optional<ZelKeymasterOperation> object_;
    SODOperationParam row_;
    SODOperationParam alias_;
};

// What SodSelect() returns, without the last text, which is a single NUL.
Texts withoutEnd(Texts texts);

}  // namespace bench
