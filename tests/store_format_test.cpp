// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store blob: the bytes that are written, the versions that are read, and what becomes of every
// truncated or lying one.

#include "db_store_format.h"

#include <fstream>
#include <sstream>
#include <utility>

#include "db_table.h"
#include "engine.h"

namespace {

using test::le32;
using test::raw;
using test::store;

constexpr char kInsert[] =
    "INSERT (ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID) VALUE "
    "('k1','app','1000,1001','[10000..19999]','1000')";
constexpr char kRow[] = "k1^app^1000,1001^[10000..19999]^1000^^\n";
constexpr char kV10[] = "SOBv1.0     ";

// A store with another number at a header's offset.
std::string with(std::string blob, size_t offset, uint32_t value) {
    return blob.replace(offset, 4, le32(value));
}

constexpr char kShort[] = "db size error\nconvert_to_internal error -913\n";

std::string tooLong(const std::string& numbers) {
    return "invalid db file len = " + numbers + "\nconvert_to_internal error -915\n";
}

// A row is followed by another byte than a line feed; 0 at the end of the payload.
std::string rowEnd(int byte) {
    return "abnormal end of lne " + std::to_string(byte) + "\nconvert_to_internal error -913\n";
}

class StoreFormat : public test::Engine {
  protected:
    // Loads the blob while the table holds the row "old", which stays if the blob is refused.
    std::string loadOverOld(const std::string& blob) {
        EXPECT_EQ("old^^^^^^\n", load(store(1, "old^^^^^^\n$")));
        const uint64_t old = handle_;
        const std::string rows = load(blob);
        EXPECT_NE(old, handle_);
        if (handle_ == 0) {
            handle_ = old;
            EXPECT_EQ("old^^^^^^\n", select(test::kSelectAll));
        }
        return rows;
    }
};

TEST_F(StoreFormat, WritesOneRowByteForByte) {
    ASSERT_EQ(0, query(kInsert));
    EXPECT_EQ(92u, result_.size());
    const std::string header(
        "SOBv1.1     \0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
        "\0\0\0\0\1\0\0\0\x28\0\0\0",
        52);
    EXPECT_EQ(header + raw(kRow + std::string("$")), result_);
}

TEST_F(StoreFormat, WritesWhatTheDocumentationShows) {
    std::ifstream page(ZELKM_DOCS_DIR "/store-format.md");
    std::string line;
    while (std::getline(page, line) && line != "```hexdump") {
    }
    std::string shown;
    while (std::getline(page, line) && line != "```") {
        std::istringstream fields(line.substr(0, line.find(';')));
        unsigned value = 0;
        fields >> std::hex >> value;
        EXPECT_EQ(shown.size(), value) << line;
        while (fields >> value) {
            shown += static_cast<char>(value);
        }
        EXPECT_TRUE(fields.eof()) << line;
    }
    ASSERT_EQ(0, query(kInsert));
    EXPECT_EQ(shown, result_);
}

TEST_F(StoreFormat, WritesVersion10BackAsVersion11) {
    EXPECT_EQ("a^b^1,2^*^9^1^\nc^^^^^^\n", load(store(2, "a|b|1,2|*|9|1|\nc||||||\n$", kV10)));
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (d)"));
    EXPECT_EQ(store(3, "a^b^1,2^*^9^1^\nc^^^^^^\nd^^^^^^\n$"), result_);
}

TEST_F(StoreFormat, KeepsValuesAsTheyAre) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += byte == 0x1E ? "" : std::string(1, static_cast<char>(byte));
    }
    const std::string row = bytes + raw("^^x^\n^\n^") + std::string(3000, 'p') + raw("^\n");
    const std::string both = row + raw("d^^^^^^\n$");
    blob_ = with(store(1, ""), 48, static_cast<uint32_t>(row.size())) + row;
    handle_ = 0;
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (d)"));
    EXPECT_TRUE(result_.substr(52) == both);
    blob_ = result_;
    handle_ = 0;
    ASSERT_EQ(0, query(test::kSelectAll));
    EXPECT_TRUE(result_ == both);
}

TEST_F(StoreFormat, RefusesEveryTruncation) {
    const std::string whole = store(1, std::string(kRow) + "$");
    for (size_t len = 1; len < whole.size(); ++len) {
        // At 52 bytes there is a payload, of no bytes.
        EXPECT_EQ(len < 52    ? kShort
                  : len == 52 ? rowEnd(0)
                              : tooLong("40, expected = " + std::to_string(len - 52)),
                  loadOverOld(whole.substr(0, len)));
    }
    // The same payload with a length that fits, in a blob that ends or goes on there.
    for (uint32_t len = 1; len <= 40; ++len) {
        const std::string blob = with(whole, 48, len);
        EXPECT_EQ(len < 39 ? rowEnd(0) : kRow, loadOverOld(blob));
        EXPECT_EQ(len < 39 ? rowEnd(0) : kRow, loadOverOld(blob.substr(0, 52 + len)));
    }
}

TEST_F(StoreFormat, ReadsNoMoreThanTheHeaderSays) {
    const std::string two = store(2, "a^^^^^^\nb^^^^^^\n$");
    const std::pair<std::string, std::string> cases[] = {
        {two + "x", "a^^^^^^\nb^^^^^^\n"},
        {with(two, 44, 1), "a^^^^^^\n"},
        {with(two, 44, 0), ""},
        {with(two, 44, 0).substr(0, 52), ""},
        {with(two, 44, 3), rowEnd(0)},
        {with(two, 44, UINT32_MAX), rowEnd(0)},
        {with(two, 48, 0), "old^^^^^^\n"},  // no payload: the table stays
        {with(two, 48, 0).substr(0, 52), "old^^^^^^\n"},
        {with(two, 48, 18), tooLong("18, expected = 17")},
        {with(two, 48, UINT32_MAX), tooLong("-1, expected = 17")},
        {with(two, 12, 1), "a^^^^^^\nb^^^^^^\n"},  // encrypted, but without callback
        {store(1, "a^b^c^d^e^f^x^\n$"), rowEnd('x')},
        {store(2, "a^b^c^d^e^\nx^y^c^d^e^f^\n$"), rowEnd('y')},
        {store(1, "a^b^c^d^e^\n$"), rowEnd(0)},
        {store(2, "a^^^^^^\xFF^^^^^^\n$"), rowEnd(255)},
        {store(1, "a||||||\n$"), rowEnd(0)},
        {store(1, "a^^^^^^\n$", kV10), rowEnd(0)},
        {store(1, "a^^^^^^\n$", "SOBv1.0    x"), "a^^^^^^\n"}};
    for (const auto& [blob, outcome] : cases) {
        EXPECT_EQ(outcome, loadOverOld(blob)) << test::readable(blob);
    }
}

TEST_F(StoreFormat, RefusesColumnsThatHoldNoBytes) {
    zelkm::column_schema[2].flags &= ~uint32_t{SDB_TYPE_BYTES};
    EXPECT_EQ("not supported type\nconvert_to_internal error -100\n",
              load(store(1, "a^b^c^d^e^f^\n$")));
    blob_.clear();
    EXPECT_EQ(-100, query("INSERT (ALIAS,ADMIN) VALUE (a,b)"));
    EXPECT_EQ("not supported type\nINSERT error(-100)\nexecute_command error -100\n", messages());
    EXPECT_EQ("", select("SELECT (ALIAS)"));
    zelkm::column_schema[2].flags |= SDB_TYPE_BYTES;
}

}  // namespace
