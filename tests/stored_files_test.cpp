// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every architecture reads the files of the first release (see data/README.md).

#include "engine.h"
#include "store_fixture.h"

namespace {

using test::Lines;

std::filesystem::path data(const std::string& name) {
    return std::filesystem::path(ZELKM_TEST_DATA_DIR) / name;
}

class FirstRelease : public test::InTempDir {
  protected:
    FirstRelease() {
        std::filesystem::copy(data("first_release"), ".");
        soft_keymaster::SoftKeymaster::Options options;
        options.root_key_path = "soft_keymaster_root.key";
        km_.emplace(options);
        open();
    }

    void open() {
        test::forgetTable();
        object_ = test::makeObject(&*km_, true);
    }

    Lines rows() {
        SODOperationParam p;
        Lines rows;
        EXPECT_EQ(0, object_->SodSelect(p.addAliasToOutput()
                                            .addCreatorToOutput()
                                            .addAdminToOutput()
                                            .addAccessorToOutput()
                                            .addCreatorUidToOutput()
                                            .addPrivilegedAccessToOutput(),
                                        rows));
        for (std::string& row : rows) {
            row = test::readable(row);
        }
        return rows;
    }

    std::optional<soft_keymaster::SoftKeymaster> km_;
    test::ObjectPtr object_;
};

TEST_F(FirstRelease, StoreAndKeyAreReadAndKept) {
    const Lines old = {"payment^wallet^1000,1001^1000,[10000..19999]^1000^^", "door^home^^app_*^^^",
                       "caf\xC3\xA9\xFF^vold^^^^1^", "$"};
    EXPECT_EQ(old, rows());
    EXPECT_EQ(Lines(), test::errors());

    std::string alias = "disk", creator = "vold";
    SODOperationParam p;
    ASSERT_EQ(0, object_->SodInsert(p.setAlias(alias).setCreator(creator)));
    open();
    Lines changed = old;
    changed.insert(changed.end() - 1, "disk^vold^^^^^");
    EXPECT_EQ(changed, rows());
    for (const std::string file : {"edbk", "edbk_digest"}) {
        EXPECT_EQ(test::readFile(data("first_release") / file), test::readFile(file)) << file;
    }
    EXPECT_EQ(test::readFile(data("first_release") / "secure_objects.db"),
              test::readFile("secure_objects.db.bak"));
}

}  // namespace
