// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What tests do with a store over a software keymaster, and a store with the objects "a" and "b"
// that a test can put back as it was before each try.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <map>
#include <string>
#include <vector>

#include "file_calls.h"
#include "operation_peer.h"
#include "temp_dir.h"

namespace test {

inline soft_keymaster::SoftKeymaster::Options storeOptions() {
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = "root_key";
    return options;
}

// What readAliases() returns about a store that is refused.
inline std::string refusal(int code) {
    return "refused with " + named(code);
}

inline const std::string kNotVerified = refusal(ZELKM_VERIFICATION_FAILED);

// The aliases in the store, each followed by a blank.
inline std::string readAliases(ZelKeymasterOperation& object) {
    std::vector<std::string> rows;
    const int status = readAliases(object, &rows);
    std::string text;
    for (const std::string& row : rows) {
        text += row + " ";
    }
    return status == 0 ? text : refusal(status);
}

inline void forgetTable() {
    ZelKeymasterOperation object(nullptr, true);
    ObjectPeer(object).forgetTable();
    clearLog();
}

using Files = std::map<std::string, Bytes>;  // by name

template <typename KeymasterType>
class StoreFixture : public InTempDir {
  protected:
    StoreFixture() : km_(options()), object_(makeObject(&km_, true)) {
        zelkm::g_file_calls.flush = [](int) {};  // thousands of states, none of which must last
        reopen();
        EXPECT_EQ(0, insertAlias(*object_, "a"));
        EXPECT_EQ(0, insertAlias(*object_, "b"));
        files_ = files();
    }

    static soft_keymaster::SoftKeymaster::Options options() {
        soft_keymaster::SoftKeymaster::Options result = storeOptions();
        result.max_operations = 100000;  // an operation that a fault broke off stays open
        return result;
    }

    // The files that the library replaces, with their backups and temporary files.
    static Files files() {
        Files found;
        for (const std::string& name : replacedNames()) {
            if (const auto content = readFile(name)) {
                found[name] = *content;
            }
        }
        return found;
    }

    static void put(const Files& files) {
        for (const std::string& name : replacedNames()) {
            std::filesystem::remove(name);
        }
        for (const auto& [name, content] : files) {
            writeFile(name, content);
        }
    }

    void startAfresh() {
        km_.setPatchLevel(options().patch_level);
        put(files_);
        reopen();
    }

    // Goes on as a new process would.
    void reopen() {
        ObjectPeer(*object_).restart();
        clearLog();
    }

    KeymasterType km_;
    ObjectPtr object_;
    Files files_;
};

}  // namespace test
