// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store's encryption as keymaster operations: what the library sends, what it takes out of each
// answer, and its repair after a tag mismatch.

#include <map>

#include "fake_keymaster_fixture.h"
#include "file_faults.h"
#include "wiped_memory.h"
#include "zelkeymaster_operation_internal.h"

namespace {

using namespace test;
using namespace android::hardware::keymaster::V4_0;

// ---- One operation ------------------------------------------------------------------------------

class DatabaseEncryption : public OverFakeKeymaster {
  protected:
    DatabaseEncryption() {
        peer.setKeyBlob(bytes("key"));
        km.answers["begin"] = {begun(bytes("NONCENONCE12"))};
        km.answers["update"] = {updated(5, "CCCCC")};
        km.answers["finish"] = {finished("TAGTAGTAGTAGTAG!")};
        test::clearLog();
    }

    static Answer begun(const Bytes& nonce) {
        Answer answer = answered();
        answer.params = {test::param(Tag::NONCE, nonce)};
        answer.handle = 0x700000077;
        return answer;
    }
    static Answer updated(uint32_t consumed, const std::string& output, int error = 0) {
        Answer answer = finished(output, error);
        answer.consumed = consumed;
        return answer;
    }
    static Answer finished(const std::string& output, int error = 0) {
        Answer answer = refused(error);
        answer.output = bytes(output);
        return answer;
    }

    Code encrypt() { return convert(1, plain, cipher); }
    Code decrypt() { return convert(0, plain, cipher); }
    Code convert(unsigned mode, Bytes& from, Bytes& to) {
        return object->DBEncrypt(mode, from.data(), to.data(), unsigned(from.size()), iv.data(),
                                 tag.data(), aad.data(), unsigned(aad.size()));
    }

    // Each buffer has its exact size on the heap, so that sanitizers see a byte too many.
    Bytes plain = bytes("plain");
    Bytes cipher = bytes("ciphr");
    Bytes iv = bytes("nonce-------");
    Bytes tag = bytes("tag-------------");
    Bytes aad = bytes("aad");
};

TEST_F(DatabaseEncryption, EncryptsInOneOperationAndOffersTheRestUntilAllIsConsumed) {
    km.answers["update"] = {updated(2, "C"), updated(1, ""), updated(2, "CCCC")};
    ASSERT_EQ(0, encrypt());
    EXPECT_EQ(bytes("CCCCC"), cipher);
    EXPECT_EQ(bytes("plain"), plain);
    EXPECT_EQ(bytes("NONCENONCE12"), iv);
    EXPECT_EQ(bytes("TAGTAGTAGTAGTAG!"), tag);
    EXPECT_EQ(Lines(), test::log());

    EXPECT_EQ((Lines{"begin ENCRYPT key [BLOCK_MODE=0x20 PADDING=0x1 MAC_LENGTH=0x80]",
                     "update 0x700000077 [ASSOCIATED_DATA=aad] plain", "update 0x700000077 [] ain",
                     "update 0x700000077 [] in", "finish 0x700000077 []"}),
              km.calls);
    EXPECT_EQ((std::set<const uint8_t*>{nullptr, peer.keyBlobData(), aad.data()}), km.seen);

    km.answers["update"] = {updated(5, "CCCCC")};
    ASSERT_EQ(0, convert(7, plain, plain));  // any mode but 0, and in place
    EXPECT_EQ("update 0x700000077 [ASSOCIATED_DATA=aad] plain", km.calls[6]);
    EXPECT_EQ(bytes("CCCCC"), plain);
}

TEST_F(DatabaseEncryption, DecryptsWithTheNonceAndTheTagAfterTheCiphertext) {
    km.answers["begin"] = {answered()};
    km.answers["update"] = {updated(21, "PPPPP")};
    km.answers["finish"] = {finished("ignored")};
    ASSERT_EQ(0, decrypt());
    EXPECT_EQ(bytes("PPPPP"), plain);
    EXPECT_EQ(bytes("tag-------------"), tag);
    EXPECT_EQ(
        (Lines{"begin DECRYPT key [BLOCK_MODE=0x20 PADDING=0x1 MAC_LENGTH=0x80 NONCE=nonce-------]",
               "update 0x0 [ASSOCIATED_DATA=aad] ciphrtag-------------", "finish 0x0 []"}),
        km.calls);
    EXPECT_EQ(1u, km.seen.count(iv.data()));
    EXPECT_TRUE(test::wiped("PPPPP"));

    // 16 bytes at the end of a decryption make it an encryption.
    km.answers["finish"] = {finished("0123456789abcdef")};
    plain = bytes("plain");
    ASSERT_EQ(0, decrypt());
    EXPECT_EQ(bytes("plain"), plain);
    EXPECT_EQ(bytes("PPPPP"), cipher);
    EXPECT_EQ(bytes("0123456789abcdef"), tag);
}

TEST_F(DatabaseEncryption, CopiesOutNoMoreThanFits) {
    for (const bool much : {false, true}) {
        const auto text = [&](const char* little) {
            return much ? std::string(70000, little[0]) : little;
        };
        km.answers["begin"] = {begun(bytes(text("short")))};
        km.answers["begin"][0].params.push_back(
            test::param(Tag::NONCE, bytes("second nonce")));  // the first one counts
        km.answers["update"] = {updated(5, text("C"))};
        km.answers["finish"] = {finished(text("TAG"))};
        ASSERT_EQ(0, encrypt());
        EXPECT_EQ(bytes(much ? "ssssssssssss" : "short-------"), iv);
        EXPECT_EQ(bytes(much ? "CCCCC" : "Ciphr"), cipher);
        EXPECT_EQ(bytes(much ? "TTTTTTTTTTTTTTTT" : "TAG-------------"), tag);
    }
    km.answers["update"] = {updated(20, "1234"), updated(1, "5678")};
    ASSERT_EQ(0, decrypt());
    EXPECT_EQ(bytes("12345"), plain);
}

TEST_F(DatabaseEncryption, EachFailingCall) {
    using Script = std::map<std::string, std::vector<Answer>>;
    const Answer wrong_update = updated(5, "CCCCC", KM_ERROR_INVALID_OPERATION_HANDLE);
    const Answer wrong_finish = finished("TAGTAGTAGTAGTAG!", KM_ERROR_INVALID_INPUT_LENGTH);
    const struct {
        const char* name;
        Script script;
    } cases[] = {
        // clang-format off
        {"begin lost", {{"begin", {lost()}}}},
        {"begin refused and lost", {{"begin", {lost(refused(KM_ERROR_TOO_MANY_OPERATIONS))}}}},
        {"begin refused", {{"begin", {refused(KM_ERROR_TOO_MANY_OPERATIONS)}}}},
        // The key is repaired once, and the call still fails.
        {"key refused", {{"begin", {refused(ZELKM_INVALID_KEY_BLOB)}}}},
        {"begin without nonce", {{"begin", {answered()}}}},
        // The library logs a lost update or finish, and keeps the answer before it.
        {"second update lost", {{"update", {updated(2, "CC"), lost()}}}},
        {"update refused and lost", {{"update", {lost(wrong_update)}}}},
        {"finish lost", {{"finish", {lost()}}}},
        {"finish refused and lost", {{"finish", {lost(wrong_finish)}}}},
        {"update refused", {{"update", {wrong_update}}}},
        {"update takes nothing", {{"update", {updated(0, "")}}}},
        {"second update takes nothing", {{"update", {updated(2, "C"), updated(0, "")}}}},
        {"update takes more than there is", {{"update", {updated(UINT32_MAX, "")}}}},
        {"finish refused", {{"finish", {wrong_finish}}}},
        {"finish without callback", {{"finish", {kNoCallback}}}},
        // clang-format on
    };
    const Script good = km.answers;
    test::writeFile("edbk", bytes("stored"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        peer.setKeyBlob(bytes("key"));
        km.answers = good;
        for (const auto& [call, answers] : c.script) {
            km.answers[call] = answers;
        }
        km.calls.clear();
        test::clearLog();
        cipher = bytes("ciphr");
        const int result = encrypt();
        expectReported(c.name, result,
                       {{"cipher", text(cipher)}, {"cached key", text(peer.keyBlob())}});
    }
}

TEST_F(DatabaseEncryption, ChecksItsArgumentsAndNeedsAKey) {
    uint8_t* const ok = plain.data();
    peer.setKeyBlob({});
    for (int missing = 0; missing < 7; ++missing) {
        const auto data = [&](int argument) { return argument == missing ? nullptr : ok; };
        const auto len = [&](int argument) { return argument == missing ? 0u : 3u; };
        EXPECT_EQ(ZELKM_INVALID_ARGUMENT,
                  object->DBEncrypt(1, data(0), data(1), len(2), data(3), data(4), data(5), len(6)))
            << "argument " << missing;
    }
    EXPECT_EQ(Lines(), test::log());
    EXPECT_EQ(Lines(), km.calls);

    km.answers["generateKey"] = {refused(KM_ERROR_UNSUPPORTED_KEY_SIZE)};
    EXPECT_EQ(KM_ERROR_UNSUPPORTED_KEY_SIZE, encrypt());
    EXPECT_EQ((Lines{"W object: no file edbk", "E object: init_db_key fail"}), test::log());
    EXPECT_EQ(1u, km.calls.size());

    test::clearLog();
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, DBEncryptCB(nullptr, 1, ok, ok, 5, ok, ok, ok, 3));
    EXPECT_EQ(Lines(), test::log());
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, DBEncryptCB(alone.get(), 1, nullptr, ok, 5, ok, ok, ok, 3));
    EXPECT_EQ((Lines{"E object: This case should not be happen. keymaster dev shoud not be used "
                     "directrly"}),
              test::log());
}

// ---- The repair after a tag mismatch ------------------------------------------------------------

TEST_F(DatabaseEncryption, TagMismatchRefreshesTheImageOrRestoresTheBackup) {
    const struct {
        const char* name;
        const char *cached, *stored, *backup;
        bool too_large = false;
    } cases[] = {
        {"file as cached", "same", "same", "older"},
        {"file as cached, no backup", "same", "same", ""},
        {"file differs", "cache", "store", "older"},
        {"no file", "cache", "", "older"},
        {"file too large", "cache", "store", "older", true},
    };
    km.answers["update"] = {updated(21, "PPPPP")};
    km.answers["finish"] = {finished("", ZELKM_VERIFICATION_FAILED)};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto put = [](const std::string& path, const std::string& content) {
            std::filesystem::remove(path);
            if (!content.empty()) {
                test::writeFile(path, bytes(content));
            }
        };
        put(kStore, c.stored);
        put(kStoreBackup, c.backup);
        peer.setImage(bytes(c.cached));
        plain = bytes("plain");
        km.calls.clear();
        test::clearLog();
        test::g_wiped.clear();
        FileFaults faults;
        if (c.too_large) {
            faults.answer("lseek end", 0xFFFFFFFFL, 0);
        }
        const int result = decrypt();
        EXPECT_TRUE(test::wiped("PPPPP"));  // the copy
        expectReported(c.name, result,
                       {{"plain", text(plain)},
                        {"cached", text(peer.image())},
                        {"stored", text(kStore)},
                        {"backup", text(kStoreBackup)}});
    }
}

}  // namespace
