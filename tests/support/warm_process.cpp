// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Uses the library once before the tests of a program that runs it in many child processes. The
// children then inherit a libcrypto that is set up and, under an emulator, code that is translated.
// There the tests take a tenth of the time.

#include <soft_keymaster/soft_keymaster.h>

#include "operation_peer.h"

namespace {

class WarmProcess : public ::testing::Environment {
  public:
    void SetUp() override {
        const std::filesystem::path before = std::filesystem::current_path();
        std::string directory =
            (std::filesystem::temp_directory_path() / "zelkm_warm_XXXXXX").string();
        ASSERT_NE(nullptr, ::mkdtemp(directory.data()));
        std::filesystem::current_path(directory);
        useLibrary();
        std::filesystem::current_path(before);
        std::filesystem::remove_all(directory);
        test::forgetTable();
    }

  private:
    static void useLibrary() {
        std::string alias = "alias", creator = "creator";
        for (const uint32_t patch_level : {1u, 2u}) {  // the second one upgrades the key
            soft_keymaster::SoftKeymaster::Options options;
            options.root_key_path = "root_key";
            options.patch_level = patch_level;
            soft_keymaster::SoftKeymaster km(options);
            const test::ObjectPtr object = test::makeObject(&km, true);
            SODOperationParam added, removed, all;
            std::vector<std::string> found;
            ASSERT_EQ(0, object->SodInsert(added.setAlias(alias).setCreator(creator)));
            ASSERT_EQ(0, object->SodRetreiveAlias(all, found));
            ASSERT_EQ(0, object->SodDelete(removed.addAliasInWhere(alias)));
            test::forgetTable();
        }
    }
};

[[maybe_unused]] const ::testing::Environment* const kRegistered =
    ::testing::AddGlobalTestEnvironment(new WarmProcess);

}  // namespace
