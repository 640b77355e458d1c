// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each thing that the library does not protect its users from, as docs/reliability.md tells it. All
// of this is meant to stay: who changes a test here changes the behaviour.

#include <soft_keymaster/fault_keymaster.h>

#include <cerrno>

#include "file_faults.h"
#include "store_fixture.h"

namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using soft_keymaster::Call;
using soft_keymaster::Fault;
using namespace test;

class KnownLimits : public test::StoreFixture<soft_keymaster::SoftKeymaster> {
  protected:
    KnownLimits() { startAfresh(); }

    // The same store through a keymaster that can fail.
    soft_keymaster::FaultKeymaster faulty_{km_};
    test::ObjectPtr other_ = test::makeObject(&faulty_, true);
};

TEST_F(KnownLimits, LostAnswerStoresPlaintextThatTheNextLoadRefuses) {
    for (const Call lost : {Call::kUpdate, Call::kFinish}) {
        startAfresh();
        test::ObjectPeer(*other_).setImage(*test::readFile(kStore));
        faulty_.reset();
        faulty_.plan(lost, 2, Fault::transportBeforeCallback());  // the first one decrypts
        EXPECT_EQ(0, insertAlias(*other_, "secret"));
        EXPECT_NE(std::string::npos, test::text(kStore).find("secret"));
        reopen();
        EXPECT_EQ(kNotVerified, readAliases(*object_));
    }
}

TEST_F(KnownLimits, ObjectKeepsTheRefusedImageForOneMoreQuery) {
    Bytes damaged = files_[kStore];
    damaged.back() ^= 1;
    test::writeFile(kStore, damaged);
    reopen();
    EXPECT_EQ(kNotVerified, readAliases(*object_));  // the backup is in place
    EXPECT_EQ(damaged, test::ObjectPeer(*object_).image());
    EXPECT_EQ(kNotVerified, readAliases(*object_));  // and in the cache only now
    EXPECT_EQ("a ", readAliases(*object_));
}

TEST_F(KnownLimits, RefusedEncryptionRollsAGoodFileBackAndTheNextWriteReplacesIt) {
    test::ObjectPeer(*other_).setImage(files_[kStore]);
    faulty_.plan(Call::kFinish, 2, Fault::error(ErrorCode::VERIFICATION_FAILED));
    EXPECT_EQ(ZELKM_VERIFICATION_FAILED, insertAlias(*other_, "c"));
    EXPECT_EQ(files_[kStoreBackup], *test::readFile(kStore));
    EXPECT_EQ(0, insertAlias(*other_, "d"));
    EXPECT_EQ("a b d ", readAliases(*other_));
}

TEST_F(KnownLimits, OlderObjectWritesItsStaleImage) {
    test::ObjectPeer(*other_).setImage(files_[kStore]);
    EXPECT_EQ(0, insertAlias(*object_, "c"));
    EXPECT_EQ("a b c ", readAliases(*other_));  // the table is shared
    test::forgetTable();
    EXPECT_EQ("a b ", readAliases(*other_));  // the image is not
    EXPECT_EQ(0, insertAlias(*other_, "d"));
    reopen();
    EXPECT_EQ("a b d ", readAliases(*object_));
}

TEST_F(KnownLimits, SeparatorsInValues) {
    EXPECT_EQ(0, insertAlias(*object_, "x\x1e\x1e\x1e\x1e\x1e\x1e\nforged"));
    reopen();
    EXPECT_EQ("a b x ", readAliases(*object_));  // as many rows as were stored; "forged" comes next
    startAfresh();
    EXPECT_EQ(0, insertAlias(*object_, "x\x1e"));
    reopen();
    EXPECT_EQ(refusal(ZELKM_MALFORMED_STORE), readAliases(*object_));
    startAfresh();
    EXPECT_EQ(0, insertAlias(*object_, "x\ny"));  // stored well, and read in two pieces
    reopen();
    SODOperationParam p;
    std::vector<std::string> rows;
    EXPECT_EQ(0, object_->SodSelect(p.addAliasToOutput(), rows));
    EXPECT_EQ((std::vector<std::string>{"a\x1e", "b\x1e", "x", "y\x1e", std::string(1, '\0')}),
              rows);
}

TEST_F(KnownLimits, ConditionEndsAtAnAndInItsValue) {
    std::string value = "x AND CREATOR=creator";
    EXPECT_EQ(0, insertAlias(*object_, value));
    SODOperationParam p;
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object_->SodDelete(p.addAliasInWhere(value)));
}

TEST_F(KnownLimits, CarelessConditionsReachEveryObject) {
    for (const auto& [column, value] :
         std::vector<std::pair<std::string, std::string>>{{"", ""}, {"FOO", "x"}, {"ALIAS", "*"}}) {
        startAfresh();
        SODOperationParam p;
        std::string name = column;
        std::string text = value;
        EXPECT_EQ(0, object_->SodDelete(column.empty() ? p : p.addWhere(name, text)));
        EXPECT_EQ("", readAliases(*object_)) << column;
    }
}

TEST_F(KnownLimits, UnreadableKeyFileIsReplaced) {
    {
        test::FileFaults faults;
        faults.fail("open edbk", EIO);
        EXPECT_EQ(kNotVerified, readAliases(*object_));
    }
    EXPECT_NE(files_["edbk"], *test::readFile("edbk"));
    EXPECT_EQ(files_["edbk"], *test::readFile("edbk.bak"));

    // The backup is refused as well, and removed when there is no older one to put in its place.
    EXPECT_EQ(files_[kStoreBackup], *test::readFile(kStore));
    EXPECT_EQ(kNotVerified, readAliases(*object_));
    EXPECT_EQ(kNotVerified, readAliases(*object_));
    EXPECT_FALSE(test::readFile(kStore).has_value());
}

TEST_F(KnownLimits, FailedKeyUpgradeNeedsARestart) {
    km_.setPatchLevel(options().patch_level + 1);
    {
        test::FileFaults faults;
        faults.fail("open edbk.tmp", ENOSPC);
        EXPECT_EQ(ZELKM_UNKNOWN_ERROR, insertAlias(*object_, "c"));
    }
    EXPECT_EQ(ZELKM_KEY_REQUIRES_UPGRADE,
              insertAlias(*object_, "c"));  // the old key, and nothing upgrades it
    reopen();
    EXPECT_EQ("a b ", readAliases(*object_));
}

// The digest does not fit the missing key: a new key is made at once, and takes the backup's place.
TEST_F(KnownLimits, KeyUpgradeThatFailsBetweenTheRenamesLosesTheKey) {
    km_.setPatchLevel(options().patch_level + 1);
    {
        test::FileFaults faults;
        faults.fail("rename edbk.tmp edbk", EIO);
        EXPECT_EQ(ZELKM_UNKNOWN_ERROR, insertAlias(*object_, "c"));
    }
    for (const char* name : {"edbk", "edbk.bak", "edbk.tmp"}) {
        EXPECT_NE(files_["edbk"], test::readFile(name).value_or(Bytes())) << name;
    }
    reopen();
    EXPECT_EQ(kNotVerified, readAliases(*object_));
}

}  // namespace
