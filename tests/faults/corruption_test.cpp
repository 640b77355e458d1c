// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A newly started object meets a flipped bit in every byte, and every truncation, of the store, the
// key file and the key's digest.

#include <cstdio>

#include "db_store_format.h"
#include "store_fixture.h"

namespace {

using test::Bytes;
using test::kNotVerified;
using test::kStore;

const std::string kMalformed = test::refusal(ZELKM_MALFORMED_STORE);
const std::string kTooLong = test::refusal(ZELKM_PAYLOAD_TOO_LONG);
const std::string kInvalidKey = test::refusal(ZELKM_INVALID_KEY_BLOB);

class Corruption : public test::StoreFixture<soft_keymaster::SoftKeymaster> {
  protected:
    // What a query returns when `name` has this content.
    std::string readWith(const char* name, const Bytes& content) {
        startAfresh();
        test::writeFile(name, content);
        reopen();
        ++states_;
        return test::readAliases(*object_);
    }

    // Calls `check` with each bit of the file's first `header` bytes flipped, and one bit of each
    // other byte, and where.
    template <typename Check>
    void flipBits(const char* name, size_t header, Check check) {
        for (size_t at = 0; at < files_[name].size(); ++at) {
            const int only = int(at % 8);
            for (int bit = at < header ? 0 : only; bit <= (at < header ? 7 : only); ++bit) {
                SCOPED_TRACE(std::string(name) + " byte " + std::to_string(at) + " bit " +
                             std::to_string(bit));
                Bytes flipped = files_[name];
                flipped[at] = static_cast<uint8_t>(flipped[at] ^ (1 << bit));
                check(flipped, at, bit);
            }
        }
    }

    template <typename Check>
    void truncateEachWay(const char* name, Check check) {
        for (size_t len = 0; len < files_[name].size(); ++len) {
            SCOPED_TRACE(std::string(name) + " cut to " + std::to_string(len));
            check(Bytes(files_[name].begin(), files_[name].begin() + static_cast<long>(len)), len);
        }
    }

    ~Corruption() override { std::printf("corrupted states: %d\n", states_); }

    int states_ = 0;
};

TEST_F(Corruption, NoFlipOfTheStoreIsTakenForOtherData) {
    const uint32_t payload_len = zelkm::readLe32(&files_[kStore][zelkm::kPayloadLenOffset]);
    ASSERT_EQ(files_[kStore].size(), zelkm::kHeaderLen + payload_len);
    flipBits(kStore, zelkm::kHeaderLen, [&](const Bytes& store, size_t at, int bit) {
        const std::string found = readWith(kStore, store);
        if (at >= zelkm::kFlagsOffset && at < zelkm::kTagOffset) {
            // Not authenticated. Without its bit 0 the ciphertext is read as text.
            const bool plaintext = at == zelkm::kFlagsOffset && bit == 0;
            EXPECT_EQ(plaintext ? kMalformed : "a b ", found);
        } else if (at >= zelkm::kRowCountOffset && at < zelkm::kPayloadLenOffset) {
            // Not authenticated: fewer rows are read, from the first on; more are not there.
            const uint32_t rows = zelkm::readLe32(&store[zelkm::kRowCountOffset]);
            EXPECT_EQ(rows == 0 ? "" : rows == 1 ? "a " : kMalformed, found);
        } else if (at >= zelkm::kPayloadLenOffset && at < zelkm::kHeaderLen) {
            const uint32_t len = zelkm::readLe32(&store[zelkm::kPayloadLenOffset]);
            EXPECT_EQ(len == 0 ? "" : len > payload_len ? kTooLong : kNotVerified, found);
        } else {
            EXPECT_EQ(kNotVerified, found);
            EXPECT_EQ(files_[test::kStoreBackup], *test::readFile(kStore));
            reopen();
            EXPECT_EQ("a ", test::readAliases(*object_));
        }
    });
}

TEST_F(Corruption, TruncatedStoreIsRefused) {
    truncateEachWay(kStore, [&](const Bytes& store, size_t len) {
        const std::string expected = len == 0                   ? ""
                                     : len <= zelkm::kHeaderLen ? kMalformed
                                                                : kTooLong;
        EXPECT_EQ(expected, readWith(kStore, store));
        EXPECT_EQ(store, *test::readFile(kStore));
    });
}

// The digest tells that a key is damaged. A new key replaces it, and the store is lost.
TEST_F(Corruption, DamagedKeyIsReplaced) {
    const auto check = [this](const Bytes& blob) {
        EXPECT_EQ(blob.empty() ? kNotVerified : kInvalidKey, readWith("edbk", blob));
        EXPECT_NE(blob, *test::readFile("edbk"));
        EXPECT_NE(files_["edbk_digest"], *test::readFile("edbk_digest"));
        std::filesystem::remove(kStore);
        reopen();
        EXPECT_EQ(0, test::insertAlias(*object_, "z"));
        reopen();
        EXPECT_EQ("z ", test::readAliases(*object_));
    };
    flipBits("edbk", 0, [&](const Bytes& blob, size_t, int) { check(blob); });
    truncateEachWay("edbk", [&](const Bytes& blob, size_t) { check(blob); });
}

TEST_F(Corruption, DamagedDigestOfAGoodKeyIsNotLookedAt) {
    const auto check = [this](const Bytes& digest) {
        EXPECT_EQ("a b ", readWith("edbk_digest", digest));
        EXPECT_EQ(files_["edbk"], *test::readFile("edbk"));
    };
    flipBits("edbk_digest", 0, [&](const Bytes& digest, size_t, int) { check(digest); });
    truncateEachWay("edbk_digest", [&](const Bytes& digest, size_t) { check(digest); });
}

}  // namespace
