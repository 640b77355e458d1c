// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Work on one store directory: the software keymaster, with the root key of the directory, the
// operation object, and the secure objects, which are read and written through it.

#pragma once

#include <sod_operation_param.h>
#include <soft_keymaster/soft_keymaster.h>
#include <zelkeymaster_operation.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "directory.h"
#include "store_file.h"
#include "store_names.h"
#include "store_values.h"

namespace zelkm_tool {

class Session {
  public:
    enum class Use {
        kStore,          // work on the secure objects
        kKeymasterOnly,  // use the other services only
    };

    // Locks the directory as long as the session lives, and makes it the process's working
    // directory, where the library keeps its files. Throws Refused when that fails, and when the
    // library, which opens files by name, could be led out of the directory by others.
    // With kStore also when the store's key needs an upgrade that the options do not allow, or when
    // the library would make the state of the store worse.
    Session(const SessionOptions& options, Use use);
    // Reports on standard error when a new root key was made.
    ~Session();

    const SessionOptions& options() const { return options_; }

    // The store file's content; nothing when there is none.
    const std::optional<std::string>& image() const { return image_; }

    // The number of objects in the store. Loads them.
    size_t numObjects();

    // The object. The first call makes it, with the keymaster of the process's only session. It is
    // not made earlier: without a store file it leaves an error file in the directory, which may be
    // no store at all.
    // The object starts with an empty store, or with a new key, when it cannot read a file. So the
    // key and the store are read by the session, and given to the object. Throws Refused when it
    // does not take them.
    ZelKeymasterOperation& operation();

    android::hardware::keymaster::V4_0::support::Keymaster& keymaster() { return keymaster_; }

    // Runs a command of the engine on the store, and stores nothing.
    EngineOutput query(std::string_view command);

    // What a command that reads has returned. Throws Refused unless it succeeded.
    EngineOutput checkRead(EngineOutput output);

    // Makes a change of the store, after which it must have that many objects. `make` returns the
    // library's result. Throws Refused, too, when the store is another one before the change than
    // the session has read, or after it than was meant.
    void change(const std::string& what, size_t num_objects, const std::function<int()>& make);

    // The change that makes this the store.
    void replaceStore(const std::string& what, size_t num_objects, EngineOutput store);

    // Throws Refused unless the result of a store operation is 0. When the library could not
    // decrypt the store, it has replaced the file by its backup: the refused file is kept as
    // kRefusedFile. Without a backup the library has removed the file: it is put back.
    void checkStoreResult(int result, const std::string& what);

  private:
    bool isThere(const std::string& name) const { return directory_.look(name).has_value(); }
    void readStore();
    void refuseInterruptedReplacement() const;
    void refuseUnreadableStore() const;
    void refuseUpgrade();
    void giveKey(ZelKeymasterOperation* operation);
    void giveStore();

    const SessionOptions options_;
    const Directory directory_;
    const DirectoryLock lock_;
    soft_keymaster::SoftKeymaster keymaster_;
    const bool uses_store_;
    bool had_root_key_;
    std::optional<std::string> key_;  // the content of the files, when they were read last
    std::optional<std::string> image_;
    std::optional<struct stat> image_status_;
    size_t num_objects_ = 0;
};

using Row = std::vector<std::string>;  // values of the columns that were asked for

inline constexpr char kWhereHelp[] = "A condition; if several are given, all must hold";
inline constexpr char kBetween[] = "::";  // creator and alias

// Throws WrongUsage as parseCondition() and checkConditions() do.
std::vector<Condition> parseConditions(const std::vector<std::string>& texts, bool careless,
                                       bool star_is_careless);

// What the library is to do: with the objects that satisfy all conditions, or with an object, given
// by all six values. Empty values are left out.
SODOperationParam paramWith(const std::vector<Condition>& conditions);
SODOperationParam paramOf(const Row& object);

// The values of the named columns, of every object that satisfies all conditions.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions = {},
                        const std::vector<std::string>& columns = parseColumns(""));

// Creator, "::" and alias of an object that begins with alias and creator.
std::string nameOf(const Row& object);

// Where the objects of this name are, as it is or as 'aliases' prints it. Throws Refused when there
// is none.
std::vector<size_t> findNamed(const std::vector<Row>& objects, const std::string& name);

// Replaces the whole store by these objects, given by all six values: one encryption, and one
// replacement of the file. Throws Refused; its text begins with `what`.
void storeObjects(Session& session, const std::vector<Row>& objects, const std::string& what);

// Throws Refused when a store of this length could not be read any more. Warns when it is long for
// a device.
void checkStoreLen(const SessionOptions& options, uint64_t len);

}  // namespace zelkm_tool
