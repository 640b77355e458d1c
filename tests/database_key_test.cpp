// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The database key's life: generation, loading, upgrade and repair, with every answer that a
// keymaster can give.

#include <openssl/sha.h>

#include <functional>

#include "fake_keymaster_fixture.h"
#include "file_faults.h"

namespace {

using namespace test;

Bytes digestOf(const std::string& text) {
    Bytes digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const uint8_t*>(text.data()), text.size(), digest.data());
    return digest;
}

constexpr char kGenerate[] =
    "generateKey [ALGORITHM=0x20 KEY_SIZE=0x100 BLOCK_MODE=0x20 PADDING=0x1 PURPOSE=0x0 "
    "PURPOSE=0x1 MIN_MAC_LENGTH=0x80]";

class DatabaseKey : public OverFakeKeymaster {
  protected:
    // The cached blob; "" when there is none.
    std::string cached() const { return text(peer.keyBlob()); }
    // Starts with these key files and this cache, and an empty log.
    void start(const std::string& stored, const Bytes& digest, const std::string& cached_blob) {
        for (const char* name : {"edbk", "edbk.bak", "edbk_digest", "edbk_digest.bak"}) {
            std::filesystem::remove(name);
        }
        if (!stored.empty()) {
            test::writeFile("edbk", bytes(stored == "()" ? "" : stored));
        }
        if (!digest.empty()) {
            test::writeFile("edbk_digest", digest);
        }
        peer.setKeyBlob(bytes(cached_blob));
        km.calls.clear();
        km.answers.clear();
        test::clearLog();
    }
};

TEST_F(DatabaseKey, IsGeneratedOnceAndStoredWithItsDigest) {
    km.answers["generateKey"] = {answered(bytes("abc"))};
    ASSERT_EQ(0, object->init_db_key(0));
    EXPECT_EQ("abc", text("edbk"));
    const Bytes digest = test::readFile("edbk_digest").value_or(Bytes());
    ASSERT_EQ(32u, digest.size());
    EXPECT_EQ(0xBA, digest[0]);  // FIPS 180-4's own example
    EXPECT_EQ(0xAD, digest[31]);

    const test::FileFaults watched;
    EXPECT_EQ(0, object->init_db_key(0));
    EXPECT_EQ(Lines(), watched.trace());
    EXPECT_EQ(Lines{kGenerate}, km.calls);
}

TEST_F(DatabaseKey, EachAnswerAndDecision) {
    const std::string no_key = "W object: no file edbk";
    const std::string no_digest = "W object: no file edbk_digest";
    const std::string not_open = "E object: file open: No space left on device(28)";
    const std::string not_written =
        "E object: key file hash writing fail " + std::to_string(ZELKM_UNKNOWN_ERROR);
    const std::string set_anyway =
        "E object: getKeyCharacteristics but set anyway, err : 0";  // whatever the error is
    const std::string code = "(" + std::to_string(ZELKM_INVALID_KEY_BLOB) + ")";
    const std::string upgrade = "W object: Upgrade the db key";
    const std::string write = "W object: Upgrade the db key file";
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

    using Action = std::function<int()>;
    const Action use = [&] { return object->init_db_key(0); };
    const Action generate = [&] { return object->init_db_key(1); };
    const Action repair = [&] { return object->restoreKeyBlob(); };
    const Action load = [&] {
        uint8_t* blob = static_cast<uint8_t*>(std::malloc(6));
        std::memcpy(blob, "loaded", 6);
        const int status = object->setLoadedDBKey(blob, 6);
        if (peer.keyBlobData() != blob) {
            std::free(blob);
        }
        return status;
    };
    using Script = std::vector<std::pair<std::string, Answer>>;  // the calls that are made
    const auto generates = [](Answer answer) { return Script{{"generateKey", answer}}; };
    const auto checks = [](Answer answer) { return Script{{"getKeyCharacteristics", answer}}; };
    const auto upgrades = [&](Answer answer) {
        Script script = checks(refused(ZELKM_KEY_REQUIRES_UPGRADE));
        script.push_back({"upgradeKey", answer});
        return script;
    };
    const Answer fresh = answered(bytes("fresh"));
    const Answer lost = delivered(Delivery::kLostAfter, fresh);
    const Answer too_large = refused(KM_ERROR_UNSUPPORTED_KEY_SIZE);
    Script replaces = checks(refused(ZELKM_INVALID_KEY_BLOB));
    replaces.push_back({"generateKey", fresh});
    const struct {
        const char* name;
        Action action;
        std::string stored;  // "()": an empty file
        Bytes digest;        // empty: no file
        std::string cached;
        Script script;
        const char* full;  // no space left for it
        int result;
        Lines log;
        std::string cached_after, stored_after;
    } cases[] = {
        // clang-format off
        {"first use", use, "", {}, "", generates(fresh), "", 0, {no_key}, "fresh", "fresh"},
        {"empty key file", use, "()", {}, "", generates(fresh), "", 0, {}, "fresh", "fresh"},
        // A new key replaces a damaged one, and still the operation that found it fails.
        {"damaged", use, "damaged", good, "", replaces, "", ZELKM_INVALID_KEY_BLOB,
         {set_anyway, "E object: check_and_upgrade_db_key error" + code,
          "W object: try restoreKeyBlob" + code, same, damaged}, "fresh", "fresh"},
        {"generation refused", generate, "", {}, "old", generates(too_large), "",
         KM_ERROR_UNSUPPORTED_KEY_SIZE, {}, "", ""},
        {"empty blob", generate, "", {}, "old", generates(answered({})), "", 0, {}, "", ""},
        {"generation lost", generate, "", {}, "old", generates(lost), "", ZELKM_UNKNOWN_ERROR,
         {kDead, callLost("error in generateKey")}, "", ""},
        {"no space for the key", generate, "", {}, "old", generates(fresh), "open edbk.tmp",
         ZELKM_UNKNOWN_ERROR, {not_open}, "", ""},
        {"no space for the digest", generate, "", {}, "old", generates(fresh),
         "open edbk_digest.tmp", ZELKM_UNKNOWN_ERROR, {not_open, not_written}, "", "fresh"},

        {"accepted", load, "loaded", {}, "old", checks({}), "", 0, {}, "loaded", "loaded"},
        {"refused", load, "loaded", {}, "old", checks(refused(ZELKM_INVALID_KEY_BLOB)), "",
         ZELKM_INVALID_KEY_BLOB, {set_anyway}, "loaded", "loaded"},
        {"check lost", load, "loaded", {}, "old", checks(delivered(Delivery::kLostAfter)), "",
         ZELKM_UNKNOWN_ERROR, {kDead, callLost("error during getKeyCharacteristics")}, "old",
         "loaded"},
        {"upgraded", load, "loaded", {}, "old", upgrades(fresh), "", ZELKM_KEY_REQUIRES_UPGRADE,
         {upgrade, write}, "fresh", "fresh"},
        {"upgrade refused", load, "loaded", {}, "old", upgrades(refused(ZELKM_INVALID_ARGUMENT)),
         "", ZELKM_INVALID_ARGUMENT, {upgrade}, "old", "loaded"},
        {"upgrade empty", load, "loaded", {}, "old", upgrades(answered({})), "",
         ZELKM_UNKNOWN_ERROR, {upgrade}, "old", "loaded"},
        {"upgrade lost", load, "loaded", {}, "old", upgrades(lost), "", ZELKM_UNKNOWN_ERROR,
         {upgrade, kDead, callLost("error during upgradeKey")}, "old", "loaded"},
        {"no space for the upgraded key", load, "loaded", {}, "old", upgrades(fresh),
         "open edbk.tmp", ZELKM_UNKNOWN_ERROR, {upgrade, write, not_open}, "old", "loaded"},

        {"cached as stored, no digest", repair, "stored", {}, "stored", {}, "", 0,
         {same, no_digest, unsupported}, "stored", "stored"},
        {"short digest", repair, "stored", too_short, "stored", {}, "", 0, {same, unsupported},
         "stored", "stored"},
        {"long digest", repair, "stored", too_long, "stored", {}, "", 0, {same, unsupported},
         "stored", "stored"},
        {"cached differs, no digest", repair, "stored", {}, "store", {}, "", 0,
         {different, no_digest, unsupported}, "stored", "stored"},
        {"digest right", repair, "stored", good, "stored", {}, "", 0, {same, intact}, "stored",
         "stored"},
        {"digest wrong", repair, "stored", wrong, "stored", generates(fresh), "", 0,
         {same, damaged}, "fresh", "fresh"},
        {"digest wrong, no new key", repair, "stored", wrong, "stored", generates(too_large), "",
         0, {same, damaged, hopeless}, "", "stored"},
        {"no file", repair, "", {}, "cached", {}, "", 0,
         {no_key, different, no_digest, unsupported}, "", ""},
        {"no file, nothing cached", repair, "", digestOf(""), "", {}, "", 0,
         {no_key, same, intact}, "", ""},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start(c.stored, c.digest, c.cached);
        Lines calls;
        for (const auto& [call, answer] : c.script) {
            km.answers[call] = {answer};
            calls.push_back(call == "generateKey"
                                ? kGenerate
                                : call + " " + c.stored + (call == "upgradeKey" ? " []" : ""));
        }
        test::FileFaults faults;
        faults.fail(c.full, ENOSPC);
        EXPECT_EQ(named(c.result), named(c.action()));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(calls, km.calls);
        EXPECT_EQ(c.cached_after, cached());
        EXPECT_EQ(c.cached_after.empty(), peer.keyBlobData() == nullptr);
        EXPECT_EQ(c.stored_after, text("edbk"));
        const bool is_new = c.stored_after == "fresh";
        EXPECT_EQ(is_new && c.stored != "()" ? c.stored : "", text("edbk.bak"));
        EXPECT_EQ(is_new && !c.cached_after.empty() ? digestOf("fresh") : c.digest,
                  test::readFile("edbk_digest").value_or(Bytes()));
    }

    start("stored", {}, "cached");
    {
        const test::FilesTooLarge large;
        EXPECT_EQ(ZELKM_MEMORY_ALLOCATION_FAILED, object->restoreKeyBlob());
    }
    EXPECT_EQ((Lines{"E object: No keyfile, it will be restored after rebooting"}), test::log());
    EXPECT_EQ("cached", cached());
}

TEST_F(DatabaseKey, NeedsABlobAndAKeymaster) {
    uint8_t byte = 0;
    test::clearLog();  // of the constructors
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, object->setLoadedDBKey(nullptr, 1));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, object->setLoadedDBKey(&byte, 0));
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, alone->init_db_key(1));
    EXPECT_EQ((Lines{"E object: invalid param", "E object: invalid param",
                     "W object: This case should not exist, keygeneration with keymaster dev"}),
              test::log());
}

}  // namespace
