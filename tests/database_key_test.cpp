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
    // What the file with the digest is the digest of.
    static std::string digested() {
        const auto digest = readFile("edbk_digest");
        for (const char* blob : {"", "fresh", "stored", "other"}) {
            if (digest == digestOf(blob)) {
                return "of \"" + std::string(blob) + "\"";
            }
        }
        return digest ? std::to_string(digest->size()) + " bytes" : "none";
    }
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
    const Answer too_large = refused(KM_ERROR_UNSUPPORTED_KEY_SIZE);
    Script replaces = checks(refused(ZELKM_INVALID_KEY_BLOB));
    replaces.push_back({"generateKey", fresh});
    const struct {
        const char* name;
        Action action;
        std::string stored;  // "()": an empty file
        Bytes digest;        // empty: no file
        std::string cached;
        Script script = {};
        const char* failing = "";  // for lack of space; or its file seems to have 4 GiB
    } cases[] = {
        // clang-format off
        {"first use", use, "", {}, "", generates(fresh)},
        {"empty key file", use, "()", {}, "", generates(fresh)},
        // A new key replaces a damaged one, and still the operation that found it fails.
        {"damaged", use, "damaged", good, "", replaces},
        {"generation refused", generate, "", {}, "old", generates(too_large)},
        {"empty blob", generate, "", {}, "old", generates(answered({}))},
        {"generation lost", generate, "", {}, "old", generates(lost(fresh))},
        {"no space for the key", generate, "", {}, "old", generates(fresh), "open edbk.tmp"},
        {"no space for the digest", generate, "", {}, "old", generates(fresh),
         "open edbk_digest.tmp"},

        {"accepted", load, "loaded", {}, "old", checks(answered())},
        {"refused", load, "loaded", {}, "old", checks(refused(ZELKM_INVALID_KEY_BLOB))},
        {"check lost", load, "loaded", {}, "old", checks(lost(answered()))},
        {"upgraded", load, "loaded", {}, "old", upgrades(fresh)},
        {"upgrade refused", load, "loaded", {}, "old", upgrades(refused(ZELKM_INVALID_ARGUMENT))},
        {"upgrade empty", load, "loaded", {}, "old", upgrades(answered({}))},
        {"upgrade lost", load, "loaded", {}, "old", upgrades(lost(fresh))},
        {"no space for the upgraded key", load, "loaded", {}, "old", upgrades(fresh),
         "open edbk.tmp"},

        {"cached as stored, no digest", repair, "stored", {}, "stored"},
        {"short digest", repair, "stored", too_short, "stored"},
        {"long digest", repair, "stored", too_long, "stored"},
        {"cached differs, no digest", repair, "stored", {}, "store"},
        {"digest right", repair, "stored", good, "stored"},
        {"digest wrong", repair, "stored", wrong, "stored", generates(fresh)},
        {"digest wrong, no new key", repair, "stored", wrong, "stored", generates(too_large)},
        {"no file", repair, "", {}, "cached"},
        {"no file, nothing cached", repair, "", digestOf(""), ""},
        {"file too large", repair, "stored", {}, "cached", {}, "lseek end"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start(c.stored, c.digest, c.cached);
        for (const auto& [call, answer] : c.script) {
            km.answers[call] = {answer};
        }
        FileFaults faults;
        const bool too_large_file = std::string(c.failing) == "lseek end";
        faults.answer(c.failing, too_large_file ? 0xFFFFFFFFL : -1, ENOSPC);
        const int result = c.action();
        EXPECT_EQ(cached().empty(), peer.keyBlobData() == nullptr);
        expectReported(c.name, result,
                       {{"cached", cached()},
                        {"edbk", text("edbk")},
                        {"edbk.bak", text("edbk.bak")},
                        {"edbk_digest", digested()}});
    }
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
