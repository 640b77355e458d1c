// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A ZelKeymasterOperation with a sample in its encrypted store, in the working directory.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "bare_keymaster.h"
#include "sample_rows.h"
#include "zelkeymaster_operation.h"

namespace bench {

inline constexpr char kStoreFile[] = "secure_objects.db";

// Parameters for a row as a whole, for a condition on its alias, and for all columns to read back.
SODOperationParam rowParam(const Row& row);
SODOperationParam aliasParam(const Row& row);
SODOperationParam& readAllColumns(SODOperationParam& param);

// Forgets the engine's table, so that the next query of any object loads its image.
void dropTable();

// Leaves the flush out, or puts it back in, for as long as it lives.
class FlushSwitch {
  public:
    explicit FlushSwitch(bool flush);
    ~FlushSwitch();
    FlushSwitch(const FlushSwitch&) = delete;
    FlushSwitch& operator=(const FlushSwitch&) = delete;

  private:
    void (*const before_)(int fd);
};

class ObjectStore {
  public:
    // Replaces the files of an earlier store, save the database key's.
    explicit ObjectStore(const Sample& sample, size_t max_update_bytes = 0);
    ~ObjectStore();
    ObjectStore(const ObjectStore&) = delete;
    ObjectStore& operator=(const ObjectStore&) = delete;

    BareKeymaster& keymaster() { return keymaster_; }
    ZelKeymasterOperation& object() { return *object_; }

    // What SodSelect() answers for all rows and columns.
    Texts all() { return all(*object_); }
    static Texts all(ZelKeymasterOperation& object);

  private:
    BareKeymaster keymaster_;
    std::optional<ZelKeymasterOperation> object_;
};

// What ObjectStore::all() must answer: one text per row, and a last one that is a single NUL.
Texts expectedTexts(const Sample& sample);

}  // namespace bench
