// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The store blob: the bytes that the engine writes, the versions that it reads, and what becomes of
// blobs that lie.

#include "db_store_format.h"

#include <fstream>
#include <sstream>
#include <utility>

#include "db_rows.h"
#include "engine.h"

namespace {

using namespace test;

constexpr char kInsert[] =
    "INSERT (ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID) VALUE "
    "('k1','app','1000,1001','[10000..19999]','1000')";
constexpr char kRow[] = "k1^app^1000,1001^[10000..19999]^1000^^\n";
constexpr char kV10[] = "SOBv1.0     ";

// A store with another number at a header's offset.
std::string with(std::string blob, size_t offset, uint32_t value) {
    return blob.replace(offset, 4, le32(value));
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

TEST_F(StoreFormat, WritesOneRowByteForByteAsDocumented) {
    ASSERT_EQ(0, query(kInsert));
    const std::string header(
        "SOBv1.1     \0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
        "\0\0\0\0\1\0\0\0\x28\0\0\0",
        52);
    EXPECT_EQ(header + raw(kRow + std::string("$")), result_);

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
    }
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
    const std::string row = bytes + raw("^^x^\n^") + std::string(1000, 'q') + raw("^") +
                            std::string(3000, 'p') + raw("^\n");
    blob_ = with(store(1, ""), 48, static_cast<uint32_t>(row.size())) + row;
    handle_ = 0;
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (d)"));
    EXPECT_TRUE(result_.substr(52) == row + raw("d^^^^^^\n$"));
    blob_ = result_;
    handle_ = 0;
    ASSERT_EQ(0, query(test::kSelectAll));
    EXPECT_TRUE(result_ == blob_.substr(52));
}

TEST_F(StoreFormat, ReadsNoMoreThanTheHeaderSays) {
    const std::string two = store(2, "a^^^^^^\nb^^^^^^\n$");
    const std::pair<const char*, std::string> cases[] = {
        {"a cut header", two.substr(0, 51)},
        {"a cut payload", two.substr(0, 60)},
        {"no final NUL", with(two, 48, 16).substr(0, 68)},  // which is not needed
        {"a byte less said", with(two, 48, 15)},
        {"a byte more", two + "x"},
        {"fewer rows said", with(two, 44, 1)},
        {"no rows said", with(two, 44, 0)},
        {"neither rows nor payload", with(two, 44, 0).substr(0, 52)},
        {"rows without payload", two.substr(0, 52)},
        {"many rows said", with(two, 44, UINT32_MAX)},
        {"no payload said", with(two, 48, 0)},  // the table stays
        {"a long payload said", with(two, 48, UINT32_MAX)},
        {"encrypted, without callback", with(two, 12, 1)},
        {"a field too many", store(1, "a^b^c^d^e^f^x^\n$")},
        {"a field too few", store(1, "a^b^c^d^e^\n$")},
        {"another end of a row", store(2, "a^^^^^^\xFF^^^^^^\n$")},
        {"the older version", store(1, "a^^^^^^\n$", kV10)},
        {"another version", store(1, "a^^^^^^\n$", "SOBv1.0    x")}};
    for (const auto& [name, blob] : cases) {
        expectReported(name, loadOverOld(blob));
    }
}

}  // namespace
