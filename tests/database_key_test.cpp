// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The database key's life: generation, loading, upgrade and repair, with every answer that a
// keymaster can give.

#include <openssl/sha.h>

#include "fake_keymaster_fixture.h"
#include "file_faults.h"

namespace {

using namespace test;

Bytes digestOf(const std::string& text) {
    Bytes digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const uint8_t*>(text.data()), text.size(), digest.data());
    return digest;
}

class DatabaseKey : public OverFakeKeymaster {
  protected:
    // The cached blob; "" when there is none.
    std::string cached() const { return text(peer.keyBlob()); }
    // Starts with the key file and the cache as given, no other key files, and an empty log.
    void start(const std::string& stored, const std::string& cached_blob) {
        for (const char* name : {"edbk", "edbk.bak", "edbk_digest", "edbk_digest.bak"}) {
            std::filesystem::remove(name);
        }
        if (!stored.empty()) {
            test::writeFile("edbk", bytes(stored));
        }
        peer.setKeyBlob(bytes(cached_blob));
        km.calls.clear();
        km.seen.clear();
        km.answers.clear();
        test::clearLog();
    }
};

TEST_F(DatabaseKey, IsGeneratedWithSevenParametersAndStoredWithItsDigest) {
    km.answers["generateKey"] = {answered(bytes("abc"))};
    test::clearLog();
    ASSERT_EQ(0, object->init_db_key(0));
    EXPECT_EQ((Lines{"W object: no file edbk"}), test::log());
    EXPECT_EQ((Lines{"generateKey [ALGORITHM=0x20 KEY_SIZE=0x100 BLOCK_MODE=0x20 PADDING=0x1 "
                     "PURPOSE=0x0 PURPOSE=0x1 MIN_MAC_LENGTH=0x80]"}),
              km.calls);
    EXPECT_EQ("abc", cached());
    EXPECT_EQ("abc", text("edbk"));
    const Bytes digest = test::readFile("edbk_digest").value_or(Bytes());
    ASSERT_EQ(32u, digest.size());
    EXPECT_EQ(0xBA, digest[0]);  // FIPS 180-4's own example
    EXPECT_EQ(0xAD, digest[31]);

    const test::FileFaults watched;
    EXPECT_EQ(0, object->init_db_key(0));
    EXPECT_EQ(Lines(), watched.trace());
    EXPECT_EQ(1u, km.calls.size());
}

TEST_F(DatabaseKey, FailingGenerationLeavesNoKey) {
    const std::string not_open = "E object: file open: No space left on device(28)";
    const std::string not_written =
        "E object: key file hash writing fail " + std::to_string(ZELKM_UNKNOWN_ERROR);
    const std::string lost = callLost("error in generateKey");
    const Answer fresh = answered(bytes("new"));
    const struct {
        const char* name;
        Answer answer;
        const char* full;  // no space left for it
        int result;
        Lines log;
        std::string stored;
    } cases[] = {
        // clang-format off
        {"refused", refused(KM_ERROR_UNSUPPORTED_KEY_SIZE), "", KM_ERROR_UNSUPPORTED_KEY_SIZE, {},
         ""},
        {"empty blob", answered({}), "", 0, {}, ""},
        {"lost after the callback", delivered(Delivery::kLostAfter, fresh), "",
         ZELKM_UNKNOWN_ERROR, {kDead, lost}, ""},
        {"no space for the key", fresh, "open edbk.tmp", ZELKM_UNKNOWN_ERROR, {not_open}, ""},
        {"no space for the digest", fresh, "open edbk_digest.tmp", ZELKM_UNKNOWN_ERROR, {not_open,
         not_written}, "new"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start("", "before");
        km.answers["generateKey"] = {c.answer};
        test::FileFaults faults;
        faults.fail(c.full, ENOSPC);
        EXPECT_EQ(named(c.result), named(object->init_db_key(1)));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ("", cached());
        EXPECT_EQ(nullptr, peer.keyBlobData());
        EXPECT_EQ(c.stored, text("edbk"));
    }
    test::clearLog();
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, alone->init_db_key(1));
    EXPECT_EQ((Lines{"W object: This case should not exist, keygeneration with keymaster dev"}),
              test::log());
}

TEST_F(DatabaseKey, EachAnswerToALoadedBlob) {
    const std::string set_anyway =
        "E object: getKeyCharacteristics but set anyway, err : 0";  // whatever the error is
    const std::string lost_check = callLost("error during getKeyCharacteristics");
    const std::string lost_upgrade = callLost("error during upgradeKey");
    const std::string upgrade = "W object: Upgrade the db key";
    const std::string write = "W object: Upgrade the db key file";
    const std::string not_open = "E object: file open: No space left on device(28)";
    const Answer fine = {};
    const Answer aged = refused(ZELKM_KEY_REQUIRES_UPGRADE);
    const Answer fresh = answered(bytes("new"));
    const Answer lost_fresh = delivered(Delivery::kLostAfter, fresh);
    const struct {
        const char* name;
        Answer check;
        Answer upgraded;
        const char* full;  // no space left for it
        int result;
        std::string cached;  // "old": what there was; "loaded": the blob, adopted
        Lines log;
    } cases[] = {
        // clang-format off
        {"accepted", fine, {}, "", 0, "loaded", {}},
        {"refused", refused(ZELKM_INVALID_KEY_BLOB), {}, "", ZELKM_INVALID_KEY_BLOB, "loaded",
         {set_anyway}},
        {"check lost", delivered(Delivery::kLostAfter), {}, "", ZELKM_UNKNOWN_ERROR, "old",
         {kDead, lost_check}},
        {"upgraded", aged, fresh, "", ZELKM_KEY_REQUIRES_UPGRADE, "new", {upgrade, write}},
        {"upgrade refused", aged, refused(ZELKM_INVALID_ARGUMENT), "", ZELKM_INVALID_ARGUMENT,
         "old", {upgrade}},
        {"upgrade empty", aged, answered({}), "", ZELKM_UNKNOWN_ERROR, "old", {upgrade}},
        {"upgrade lost", aged, lost_fresh, "", ZELKM_UNKNOWN_ERROR, "old", {upgrade, kDead,
         lost_upgrade}},
        {"no space for the upgraded key", aged, fresh, "open edbk.tmp", ZELKM_UNKNOWN_ERROR,
         "old", {upgrade, write, not_open}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start("loaded", "old");
        km.answers["getKeyCharacteristics"] = {c.check};
        km.answers["upgradeKey"] = {c.upgraded};
        test::FileFaults faults;
        faults.fail(c.full, ENOSPC);
        uint8_t* blob = static_cast<uint8_t*>(std::malloc(6));
        std::memcpy(blob, "loaded", 6);
        EXPECT_EQ(named(c.result), named(object->setLoadedDBKey(blob, 6)));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(c.cached, cached());
        EXPECT_EQ(c.cached == "loaded", peer.keyBlobData() == blob);
        EXPECT_EQ(c.cached == "new" ? "new" : "loaded", text("edbk"));
        EXPECT_EQ(c.check.error == ZELKM_KEY_REQUIRES_UPGRADE
                      ? (Lines{"getKeyCharacteristics loaded", "upgradeKey loaded []"})
                      : (Lines{"getKeyCharacteristics loaded"}),
                  km.calls);
        EXPECT_EQ((std::set<const uint8_t*>{blob}), km.seen);
        if (c.cached == "new") {
            EXPECT_EQ("loaded", text("edbk.bak"));
            EXPECT_EQ(digestOf("new"), test::readFile("edbk_digest"));
        }
        if (peer.keyBlobData() != blob) {
            std::free(blob);
        }
    }
    test::clearLog();
    uint8_t byte = 0;
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, object->setLoadedDBKey(nullptr, 1));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, object->setLoadedDBKey(&byte, 0));
    EXPECT_EQ((Lines{"E object: invalid param", "E object: invalid param"}), test::log());
}

TEST_F(DatabaseKey, IsRepairedOrReplacedAtTheFirstUse) {
    // A new key replaces a damaged one, and still the operation that found it fails.
    start("damaged", "");
    test::writeFile("edbk_digest", digestOf("stored"));
    km.answers["getKeyCharacteristics"] = {refused(ZELKM_INVALID_KEY_BLOB)};
    km.answers["generateKey"] = {answered(bytes("fresh"))};
    EXPECT_EQ(ZELKM_INVALID_KEY_BLOB, object->init_db_key(0));
    EXPECT_EQ("fresh", cached());
    Lines log = test::log();
    log.resize(3);
    const std::string code = "(" + std::to_string(ZELKM_INVALID_KEY_BLOB) + ")";
    EXPECT_EQ((Lines{"E object: getKeyCharacteristics but set anyway, err : 0",
                     "E object: check_and_upgrade_db_key error" + code,
                     "W object: try restoreKeyBlob" + code}),
              log);

    // An empty key file counts as none.
    start("", "");
    test::writeFile("edbk", {});
    km.answers["generateKey"] = {answered(bytes("fresh"))};
    EXPECT_EQ(0, object->init_db_key(0));
    EXPECT_EQ("fresh", cached());
    EXPECT_EQ(Lines(), test::log());
}

TEST_F(DatabaseKey, EachDecisionOfARepair) {
    const std::string no_key = "W object: no file edbk";
    const std::string no_digest = "W object: no file edbk_digest";
    const std::string same = "D object: cached key blob is verified same as the stored blob";
    const std::string different =
        "E object: cached key blob is broken, update with the stored blob";
    const std::string unsupported = "E object: No key digest file, regard it does not support";
    const std::string intact =
        "E object: key blob is verified, regard the device is corrupted or the old version";
    const std::string damaged =
        "E object: key blob is corrupted. regard the key file is broken and regenerate key";
    const std::string hopeless = "E object: key blob generation failure. no way to restore";
    const Bytes good = digestOf("stored");
    const Bytes wrong = digestOf("other");
    const Bytes too_short(good.begin(), good.end() - 1);
    Bytes too_long = good;
    too_long.push_back(0);
    const Answer fresh = answered(bytes("fresh"));
    const struct {
        const char* name;
        std::string stored, cached;
        Bytes digest;  // empty: no file
        Answer generated;
        Lines log;
        std::string cached_after, stored_after;
    } cases[] = {
        // clang-format off
        {"cached as stored, no digest", "stored", "stored", {}, fresh, {same, no_digest,
         unsupported}, "stored", "stored"},
        {"short digest", "stored", "stored", too_short, fresh, {same, unsupported}, "stored",
         "stored"},
        {"long digest", "stored", "stored", too_long, fresh, {same, unsupported}, "stored",
         "stored"},
        {"cached differs, no digest", "stored", "store", {}, fresh, {different, no_digest,
         unsupported}, "stored", "stored"},
        {"digest right", "stored", "stored", good, fresh, {same, intact}, "stored", "stored"},
        {"digest wrong", "stored", "stored", wrong, fresh, {same, damaged}, "fresh", "fresh"},
        {"digest wrong, no new key", "stored", "stored", wrong,
         refused(KM_ERROR_UNSUPPORTED_KEY_SIZE), {same, damaged, hopeless}, "", "stored"},
        {"no file", "", "cached", {}, fresh, {no_key, different, no_digest, unsupported}, "", ""},
        {"no file, nothing cached", "", "", digestOf(""), fresh, {no_key, same, intact}, "", ""},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start(c.stored, c.cached);
        if (!c.digest.empty()) {
            test::writeFile("edbk_digest", c.digest);
        }
        km.answers["generateKey"] = {c.generated};
        EXPECT_EQ(0, object->restoreKeyBlob());
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(c.cached_after, cached());
        EXPECT_EQ(c.stored_after, text("edbk"));
        const bool regenerated = c.cached_after == "fresh";
        EXPECT_EQ(regenerated ? digestOf("fresh") : c.digest,
                  test::readFile("edbk_digest").value_or(Bytes()));
    }

    start("stored", "cached");
    {
        const test::FilesTooLarge large;
        EXPECT_EQ(ZELKM_MEMORY_ALLOCATION_FAILED, object->restoreKeyBlob());
    }
    EXPECT_EQ((Lines{"E object: No keyfile, it will be restored after rebooting"}), test::log());
    EXPECT_EQ("cached", cached());
}

}  // namespace
