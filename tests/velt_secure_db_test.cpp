// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The engine's entry point: commands from text to result, every message, handles, and the
// encryption callback. The program is linked so that the library's calls of RAND_bytes and
// OPENSSL_cleanse arrive here first.

#include "velt_secure_db.h"

#include <cstring>
#include <utility>
#include <vector>

#include "engine.h"
#include "failing_memory.h"
#include "wiped_memory.h"

namespace {

using namespace test;

int g_random_failures;  // draws that fail or give 0, in turn

}  // namespace

extern "C" {

int __real_RAND_bytes(unsigned char* to, int len);

int __wrap_RAND_bytes(unsigned char* to, int len) {
    if (g_random_failures == 0) {
        return __real_RAND_bytes(to, len);
    }
    const bool fails = --g_random_failures % 2 != 0;
    std::memset(to, fails ? 0x5A : 0, static_cast<size_t>(len));
    return fails ? 0 : 1;
}

}  // extern "C"

namespace {

class Query : public test::Engine {};

// ---- Messages -----------------------------------------------------------------------------------

TEST_F(Query, RefusalsSayWhyAndChangeNothing) {
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    for (const std::string command : {"S",
                                      "select (ALIAS)",
                                      "SELECT ALIAS)",
                                      "INSERT (ALIAS",
                                      "INSERT (ALIAS) VALUE (a) ",
                                      "UPDATE (ADMIN) VALUE (x) WHERE ALIAS=a",
                                      "UPDATE (ADMIN) VALUE (x)",
                                      "SELECT (,)",
                                      "SELECT ('ab'x)",
                                      "INSERT (ALIAS) VALUE (ab'c)",
                                      "SELECT (a,b,c,d,e,f,g)",
                                      "INSERT (ALIAS) VALUE (a,b,c,d,e,f,g)",
                                      "DELETE WHERE ALIAS=''",
                                      "DELETE WHERE ALIAS='ab",
                                      "DELETE WHERE ALIAS",
                                      "DELETE WHERE ALIAS=",
                                      "DELETE WHERE ALIAS=a,b",
                                      "INSERT () VALUE ()",
                                      "INSERT (ALIAS,CREATOR) VALUE (a)",
                                      "INSERT (ALIAS) VALUE ()",
                                      "INSERT (ALIAS,ALIA) VALUE (a,b)",
                                      "INSERT (CREATOR_UIDS) VALUE (a)",
                                      "DELETE WHERE ALIAS=b"}) {
        const int status = query(command);
        expectReported(command, test::readable(messages(status)));
        EXPECT_EQ("a^^^^^^\n", select(test::kSelectAll)) << command;
    }
}

TEST_F(Query, DumpsCommandsAndUnknownColumnsAtDebugLevel) {
    const auto dumped = [this](const std::string& command) {
        test::clearLog();
        static_cast<void>(query(command));
        std::string all;
        for (const std::string& line : test::log()) {
            all += line.substr(0, line.find(" : L")) + "\n";  // the source line varies
        }
        return all;
    };
    EXPECT_EQ("D engine: command(13)\nD engine: SELECT (A\nD engine: B)\nD engine: \n",
              dumped("SELECT (A\nB)\n"));
    EXPECT_EQ(
        "D engine: command(22)\nD engine: INSERT (FOO) VALUE (x)\n"
        "E engine: invalid column name\nD engine: invalid column name(3)\nD engine: FOO\n"
        "E engine: INSERT error(-910)\nE engine: execute_command error -910\n",
        dumped("INSERT (FOO) VALUE (x)"));
    const std::string longer = "SELECT (" + std::string(2000, 'x') + ")";
    EXPECT_EQ("D engine: command(2009)\nD engine: " + longer.substr(0, 1023) + "\n",
              dumped(longer));
}

// ---- Entry point --------------------------------------------------------------------------------

TEST_F(Query, NeedsCommandAndHandle) {
    unsigned char* out = nullptr;
    unsigned int len = 4711;
    EXPECT_EQ(ZELKM_INVALID_ARGUMENT, sdb_query(nullptr, 6, nullptr, 0, &out, &len, &handle_));
    EXPECT_EQ(ZELKM_INVALID_ARGUMENT, sdb_query("DELETE", 0, nullptr, 0, &out, &len, &handle_));
    EXPECT_EQ(ZELKM_INVALID_ARGUMENT, sdb_query("DELETE", 6, nullptr, 0, &out, &len, nullptr));
    const std::string message = "command or len is null\n";
    EXPECT_EQ(message + message + message, messages());
    // A result without a place for it is wiped and released.
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    g_wiped.clear();
    EXPECT_EQ(0, sdb_query("SELECT (ALIAS)", 14, nullptr, 0, nullptr, &len, &handle_));
    EXPECT_TRUE(wiped(raw("a^\n$")));
    EXPECT_EQ(0, sdb_query("SELECT (ALIAS)", 14, nullptr, 0, &out, nullptr, &handle_));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(4711u, len);
}

TEST_F(Query, HandlesNameTheTableThatWasLoadedLast) {
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    blob_ = result_;
    const uint64_t first = handle_;
    EXPECT_EQ("a^\n", select("SELECT (ALIAS)"));
    handle_ = 0;
    EXPECT_EQ(ZELKM_SYNTAX_ERROR,
              query("SELECT"));  // the table is loaded even if the command is refused
    const uint64_t second = handle_;
    EXPECT_NE(0u, second);
    EXPECT_NE(first, second);
    handle_ = first;
    EXPECT_EQ(ZELKM_STALE_TABLE_HANDLE, query("SELECT (ALIAS)"));
    EXPECT_EQ(first, handle_);
    handle_ = second;
    blob_ = "not looked at";
    EXPECT_EQ("a^\n", select("SELECT (ALIAS)"));
    handle_ = 0;
    blob_ = "";
    const unsigned char nothing = 0;
    EXPECT_EQ(0, sdb_query("SELECT ()", 9, &nothing, 0, nullptr, nullptr, &handle_));
    EXPECT_EQ("", select("SELECT (ALIAS)"));  // no store: an empty table
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (b)"));
    EXPECT_EQ(store(1, "b^^^^^^\n$"), result_);
}

TEST_F(Query, DrawsHandlesUpToTenTimes) {
    std::string expected;
    for (int failures = 1; failures <= 10; ++failures) {
        expected += "fail to generate db handle: ADDR\n";
        g_random_failures = failures;
        handle_ = 0;
        EXPECT_EQ(0, query("SELECT (ALIAS)"));
        EXPECT_EQ(failures == 10, handle_ == 0);
        EXPECT_EQ(expected, messages());
    }
}

// ---- Encryption ---------------------------------------------------------------------------------

constexpr char kNonceAndTag[] = "tagTAGtagTAGtag!ivIVivIVivIV";

// A callback that checks its arguments and flips bits.
struct Cipher {
    int status = 0;
    std::string calls;          // mode, length, associated data
    const void* own = nullptr;  // the engine's buffer
    size_t own_len = 0;

    static int convert(void* ctx, unsigned mode, unsigned char* plain, unsigned char* cipher,
                       unsigned len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                       unsigned aad_len) {
        Cipher* self = static_cast<Cipher*>(ctx);
        self->calls += std::to_string(mode) + " " + std::to_string(len) + " " +
                       std::string(aad, aad + aad_len) + "\n";
        unsigned char* header = cipher - 52;
        EXPECT_EQ(header + 16, tag);
        EXPECT_EQ(header + 32, iv);
        EXPECT_EQ(mode == 1 ? std::string(28, '\0') : kNonceAndTag, std::string(tag, tag + 28));
        if (mode == 1) {
            EXPECT_EQ(cipher, plain);
            std::memcpy(tag, kNonceAndTag, 28);
        } else {
            EXPECT_EQ(header, aad);
            EXPECT_TRUE(plain + len <= header || plain >= cipher + len);
        }
        self->own = mode == 1 ? header : plain;
        self->own_len = mode == 1 ? len + 52 : len;
        for (unsigned i = 0; i < len; ++i) {
            plain[i] = static_cast<unsigned char>(cipher[i] ^ 0x55);
        }
        return self->status;
    }

    bool ownWasWiped() const {
        return std::any_of(g_wiped.begin(), g_wiped.end(), [this](const auto& wipe) {
            return wipe.first == own && wipe.second.size() == own_len;
        });
    }
};

// A store of one row as Cipher makes it.
std::string encrypted(const std::string& row, const std::string& magic = "SOBv1.1     ") {
    std::string blob = store(1, row + "$", magic, 1).replace(16, 28, kNonceAndTag);
    for (size_t i = 52; i < blob.size(); ++i) {
        blob[i] = static_cast<char>(blob[i] ^ 0x55);
    }
    return blob;
}

TEST_F(Query, EncryptsInPlaceAndDecryptsIntoAnotherBuffer) {
    Cipher cipher;
    sdb_register_db_encrypt_fp(&cipher, Cipher::convert);
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    EXPECT_EQ(encrypted("a^^^^^^\n"), result_);
    EXPECT_EQ("a^^^^^^\n", load(result_));
    EXPECT_TRUE(cipher.ownWasWiped());
    EXPECT_EQ("b^^^^^^\n", load(encrypted("b||||||\n", "SOBv1.0     ")));
    ASSERT_EQ(0, query("DELETE"));
    EXPECT_EQ("1 9 SOBv1.1     \n0 9 SOBv1.1     \n0 9 SOBv1.0     \n1 1 SOBv1.1     \n",
              cipher.calls);
    cipher.calls.clear();
    EXPECT_EQ("c^^^^^^\n", load(store(1, "c^^^^^^\n$", "SOBv1.1     ", 0xFFFFFFFE)));
    EXPECT_EQ("db size error\n" + notLoaded(ZELKM_MALFORMED_STORE),
              load(encrypted("a^^^^^^\n").substr(0, 52)));
    EXPECT_EQ("", cipher.calls);
}

TEST_F(Query, FailedEncryptionDropsTheTableFailedDecryptionLeavesIt) {
    Cipher cipher;
    cipher.status = 5;  // positive ones are failures, too
    const std::pair<const char*, std::string> cases[] = {
        {"INSERT (ALIAS) (b)", refusedBy("INSERT", 5)},
        {"DELETE", refusedBy("DELETE", 5)},
        {"UPDATE", ""}};
    for (const auto& [command, more] : cases) {
        EXPECT_EQ("a^^^^^^\n", load(store(1, "a^^^^^^\n$")));
        sdb_register_db_encrypt_fp(&cipher, Cipher::convert);
        EXPECT_EQ(5, command[0] == 'U' ? update("ALIAS", "b", "") : query(command));
        EXPECT_EQ("export sdb fail, clear db to sync again\n" + more, messages());
        EXPECT_TRUE(cipher.ownWasWiped());
        EXPECT_EQ(ZELKM_STALE_TABLE_HANDLE, query("SELECT (ALIAS)"));
        EXPECT_EQ("", messages());
    }
    // A failed decryption leaves the table.
    EXPECT_EQ("old^^^^^^\n", load(store(1, "old^^^^^^\n$")));
    const uint64_t old = handle_;
    EXPECT_EQ(notLoaded(5), load(encrypted("a^^^^^^\n")));
    EXPECT_TRUE(cipher.ownWasWiped());
    cipher.calls.clear();
    failAllocation(1, false);
    EXPECT_EQ("allocation failure\n" + notLoaded(ZELKM_MEMORY_ALLOCATION_FAILED),
              load(encrypted("a^^^^^^\n")));
    EXPECT_TRUE(stopFailing());
    EXPECT_EQ("", cipher.calls);
    handle_ = old;
    EXPECT_EQ("old^^^^^^\n", select(test::kSelectAll));
}

}  // namespace
