// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Secure objects from the public methods down to the encrypted file, with a software keymaster.

#include <soft_keymaster/fault_keymaster.h>

#include <algorithm>

#include "file_faults.h"
#include "store_fixture.h"
#include "velt_secure_db.h"
#include "wiped_memory.h"
#include "zelkeymaster_operation_internal.h"

namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using soft_keymaster::Call;
using soft_keymaster::Fault;
using soft_keymaster::FaultKeymaster;
using soft_keymaster::SoftKeymaster;
using namespace test;

const std::string kEnd(1, '\0');  // the last element of every selection

class SecureObjects : public test::InTempDir {
  protected:
    SecureObjects() { restart(); }

    static SoftKeymaster::Options options() {
        SoftKeymaster::Options result = storeOptions();
        result.max_update_bytes = 7;  // so that every operation takes several updates
        return result;
    }
    // Makes the object and the table anew, as a new process would.
    void restart() {
        object.reset();
        test::forgetTable();
        object = test::makeObject(&km, true);
        test::clearLog();
    }
    Code insert(const char* alias, const char* creator) {
        return insertAlias(*object, alias, creator);
    }
    Code remove(const char* alias) { return removeAlias(*object, alias); }
    // "creator::alias" of all objects, or the name of the error.
    Lines list() {
        SODOperationParam p;
        p.addAdminToOutput();  // replaced
        Lines result;
        const int status = object->SodRetreiveAlias(p, result);
        return status == 0 ? result : Lines{named(status)};
    }
    static Bytes stored() { return test::readFile(kStore).value_or(Bytes()); }
    Bytes image() { return test::ObjectPeer(*object).image(); }

    SoftKeymaster soft{options()};
    FaultKeymaster km{soft};
    test::ObjectPtr object;
};

TEST_F(SecureObjects, LiveInAnEncryptedFileThatANewProcessReads) {
    ASSERT_EQ(0, insert("k1", "u1"));
    const Bytes first = stored();
    ASSERT_EQ(0, insert("k2", "u2"));
    EXPECT_EQ(stored(), image());
    EXPECT_EQ(first, test::readFile(kStoreBackup));
    EXPECT_EQ(std::string::npos, text(kStore).find("k1\x1Eu1\x1E"));

    restart();
    ASSERT_EQ(0, remove("k1"));
    restart();
    EXPECT_EQ((Lines{"u2::k2"}), list());
    EXPECT_EQ(Lines(), test::errors());
}

TEST_F(SecureObjects, AreSelectedRowByRow) {
    ASSERT_EQ(0, insert("k1", "u1"));
    std::string k2 = "k2";
    SODOperationParam without_creator;
    ASSERT_EQ(0, object->SodInsert(without_creator.setAlias(k2)));
    SODOperationParam p;
    Lines rows = {"before"};
    ASSERT_EQ(0, object->SodSelect(p.addCreatorToOutput().addAliasToOutput(), rows));
    EXPECT_EQ((Lines{"before", "u1\x1Ek1\x1E", "\x1Ek2\x1E", kEnd}), rows);
    EXPECT_TRUE(test::wiped("u1\x1Ek1\x1E\n\x1Ek2\x1E\n" + kEnd));  // the engine's text of them
    Lines none;
    ASSERT_EQ(0, object->SodRetreiveOther(p, none));  // serves one column only
    p.addAdminToOutput().addAccessorToOutput().addCreatorUidToOutput();
    ASSERT_EQ(0, object->SodRetreiveOther(p, none));
    EXPECT_EQ(Lines(), none);
    EXPECT_EQ((Lines{"u1::k1", "::k2"}), list());

    SODOperationParam creators;
    Lines found = {"before"};
    ASSERT_EQ(0, object->SodRetreiveOther(creators.addCreatorToOutput(), found));
    EXPECT_EQ((Lines{"before", "u1"}), found);

    std::string missing = "missing";
    rows.clear();
    ASSERT_EQ(0, object->SodSelect(p.addAliasInWhere(missing), rows));
    EXPECT_EQ((Lines{kEnd}), rows);

    ASSERT_EQ(0, insert("k3\x1Ek4", "u3"));  // three fields: skipped
    EXPECT_EQ((Lines{"u1::k1", "::k2"}), list());
}

TEST_F(SecureObjects, OfMoreThanAMebibyteComeBackFromManyUpdates) {
    SoftKeymaster::Options pieces = options();
    pieces.max_update_bytes = 65536;
    SoftKeymaster other(pieces);
    const test::ObjectPtr o = test::makeObject(&other, true);
    Bytes text(1500000), cipher(text.size()), back(text.size()), iv(12), tag(16), aad(3);
    for (size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<uint8_t>(i * i >> 8);
    }
    const auto convert = [&](unsigned mode, Bytes& plain) {
        return o->DBEncrypt(mode, plain.data(), cipher.data(), unsigned(plain.size()), iv.data(),
                            tag.data(), aad.data(), 3);
    };
    EXPECT_EQ(0, convert(1, text));
    EXPECT_EQ(0, convert(0, back));
    EXPECT_TRUE(text == back);
}

TEST_F(SecureObjects, UpdateReachesTheEngineWhichRefusesIt) {
    std::string k = "k";
    SODOperationParam p;
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodUpdate(p.setAdmin(k).addAliasInWhere(k)));
    const Lines said = test::log();
    EXPECT_EQ(1, std::count(said.begin(), said.end(),
                            "D engine: UPDATE (ADMIN) VALUE (\x1Fk\x1F) WHERE ALIAS=\x1Fk\x1F"));
    EXPECT_EQ(1, std::count(said.begin(), said.end(), "E engine: value parsing error"));
}

TEST_F(SecureObjects, RefuseUnusableLists) {
    std::string k = "k";
    Lines rows;
    SODOperationParam p;
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodUpdate(p));
    p.setAlias(k).getColumnList().push_back("CREATOR");
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodUpdate(p));
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodRetreiveOther(p, rows));
    p.addAliasInWhere(k).addAliasToOutput().getWhereValueList().clear();
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodSelect(p, rows));
    EXPECT_EQ(ZELKM_SYNTAX_ERROR, object->SodRetreiveAlias(p, rows));
    EXPECT_EQ(Lines(), test::log());
}

TEST_F(SecureObjects, AreOutOfReachWhenSwitchedOff) {
    ASSERT_EQ(0, insert("k", "u"));
    object.reset();
    object = test::makeObject(&km, false);
    EXPECT_EQ(Bytes(), image());
    EXPECT_EQ(ZELKM_SECURE_DB_DISABLED, insert("k", "u"));
    EXPECT_EQ(ZELKM_SECURE_DB_DISABLED, remove("k"));
    EXPECT_EQ((Lines{named(ZELKM_SECURE_DB_DISABLED)}), list());
}

TEST_F(SecureObjects, AreLoadedAgainOnlyWhenTheTableIsStale) {
    ASSERT_EQ(0, insert("k", "u"));
    km.reset();
    EXPECT_EQ((Lines{"u::k"}), list());
    EXPECT_TRUE(km.calls().empty());

    uint64_t handle = 0;  // somebody else's table
    ASSERT_EQ(0, sdb_query("SELECT (ALIAS)", 14, nullptr, 0, nullptr, nullptr, &handle));
    EXPECT_EQ((Lines{"u::k"}), list());
    EXPECT_EQ(1u, km.calls(Call::kBegin).size());

    EXPECT_EQ(ZELKM_SYNTAX_ERROR,
              object->SodInsert(SODOperationParam().clear()));  // any other failure
    EXPECT_EQ((Lines{"u::k"}), list());
    EXPECT_EQ(2u, km.calls(Call::kBegin).size());

    const uint8_t text[] = {'?'};
    const keymaster_blob_t command = {text, 1};
    keymaster_blob_t out = {text, 1};
    EXPECT_EQ(ZELKM_SYNTAX_ERROR,
              object->queryInternal(nullptr, nullptr, nullptr, nullptr, &command, &out));
    EXPECT_EQ(nullptr, out.data);
    EXPECT_EQ(0u, out.data_length);
}

TEST_F(SecureObjects, FileAndImageStayWhenAChangeFails) {
    ASSERT_EQ(0, insert("k", "u"));
    const Bytes before = stored();
    {
        test::FileFaults faults;
        EXPECT_EQ(0, remove("missing"));
        EXPECT_EQ(Lines(), faults.trace());
        faults.fail("open secure_objects.db.tmp", ENOSPC);
        EXPECT_EQ(ZELKM_UNKNOWN_ERROR, insert("k2", "u2"));
    }
    EXPECT_EQ((Lines{"u::k", "u2::k2"}), list());  // the table in memory is ahead

    km.plan(Call::kBegin, 1, Fault::error(ErrorCode::TOO_MANY_OPERATIONS));
    EXPECT_EQ(KM_ERROR_TOO_MANY_OPERATIONS, insert("k3", "u3"));
    EXPECT_EQ((Lines{"u::k"}), list());  // dropped, and loaded again
    EXPECT_EQ(before, stored());
    EXPECT_EQ(before, image());
}

TEST_F(SecureObjects, StartWithTheImageThatIsThere) {
    test::writeFile(kStore, bytes("anything"));
    const test::ObjectPtr second = test::makeObject(&km, true);
    EXPECT_EQ((Lines{"D object: instantiated with IZelKeymasterDevice"}), test::log());
    test::ObjectPeer peer(*second);
    EXPECT_EQ(bytes("anything"), peer.image());

    // A re-initialised object forgets without releasing, and stays switched on.
    peer.setKeyBlob(bytes("key"));
    void* const left[] = {const_cast<uint8_t*>(peer.imageData()),
                          const_cast<uint8_t*>(peer.keyBlobData())};
    second->initZelKeymasterOperation();
    EXPECT_EQ(Bytes(), peer.image());
    EXPECT_EQ(nullptr, peer.imageData());
    EXPECT_EQ(nullptr, peer.keyBlobData());
    EXPECT_EQ(0u, peer.keyBlobLen());
    EXPECT_EQ(ZELKM_INVALID_ARGUMENT,
              second->queryInternal(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR,
              DBEncryptCB(second.get(), 0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0));
    std::free(left[0]);
    std::free(left[1]);
}

}  // namespace
