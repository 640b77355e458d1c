// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The numbers that callers share with the library: codes, tags, purposes and layouts. They are a
// promise, since a caller built against an older header must go on working. Who changes a number
// here changes the interface. And what the host's stand-ins for the platform are as strict about as
// the platform is.

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

#include "velt_secure_db.h"
#include "zelkeymaster_operation.h"

using Layout = std::vector<size_t>;

// Where the members of an object lie, in bytes from its beginning, and last its size.
template <typename Object, typename... Members>
Layout layout(const Object& object, const Members&... members) {
    const auto offset = [&object](const void* member) {
        return static_cast<size_t>(static_cast<const char*>(member) -
                                   reinterpret_cast<const char*>(&object));
    };
    return {offset(&members)..., sizeof(object)};
}

struct ZelKeymasterOperationPeer {
    static Layout of(const ZelKeymasterOperation& o) {
        return layout(o, o.mDbData, o.mDbLen, o.mDbKeyBlob, o.mDbKeyBlobLen, o.mSecureDbEnabled,
                      o.mKeymaster);
    }
};

namespace {

// All other tests of the library use the names.
static_assert(ZELKM_OK == 0);
static_assert(ZELKM_UNSUPPORTED_PURPOSE == -2);
static_assert(ZELKM_VERIFICATION_FAILED == -30);
static_assert(ZELKM_UNEXPECTED_NULL_POINTER == -32);
static_assert(ZELKM_INVALID_KEY_BLOB == -33);
static_assert(ZELKM_INVALID_ARGUMENT == -38);
static_assert(ZELKM_INVALID_TAG == -40);
static_assert(ZELKM_MEMORY_ALLOCATION_FAILED == -41);
static_assert(ZELKM_MISSING_NONCE == -51);
static_assert(ZELKM_KEY_REQUIRES_UPGRADE == -62);
static_assert(ZELKM_UNSUPPORTED_COLUMN_TYPE == -100);
static_assert(ZELKM_UNKNOWN_COLUMN == -910);
static_assert(ZELKM_SYNTAX_ERROR == -911);
static_assert(ZELKM_MALFORMED_STORE == -913);
static_assert(ZELKM_STALE_TABLE_HANDLE == -914);
static_assert(ZELKM_PAYLOAD_TOO_LONG == -915);
static_assert(ZELKM_NOTHING_DELETED == -917);
static_assert(ZELKM_SECURE_DB_DISABLED == -918);
static_assert(ZELKM_UNKNOWN_ERROR == -1000);
static_assert(PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY == 0 && PW_ENCRYPT_TYPE_TO_KEY == 1);
static_assert(int(PWHW_PURPOSE_TO_KEY) == 101 && int(PWHW_PURPOSE_TO_ENCRYPTED_KEY) == 102);
static_assert(uint32_t(PWHW_TAG_IN_1) == 0x90000907 && uint32_t(PWHW_TAG_IN_2) == 0x90000908);
static_assert(uint32_t(PWHW_TAG_IN_3) == 0x90000909 && uint32_t(PWHW_TAG_IN_4) == 0x9000090A);
static_assert(uint32_t(PWHW_TAG_ENCRYPTED_KEY) == 0x9000090B);
static_assert(uint32_t(PWHW_TAG_KEY) == 0x9000090C && uint32_t(PWHW_TAG_TAG) == 0x9000090D);
static_assert(uint32_t(PWHW_TAG_ROT) == 0x9000090E);
static_assert(uint32_t(TAG_GENERATE_CSR) == 0x70000899);

TEST(Abi, StructuresOfTheEngine) {
    const db_token_t token = {};
    EXPECT_EQ((Layout{0, 8, 16}), layout(token, token.token, token.len));
    const db_parsed_tokens_t tokens = {};
    EXPECT_EQ((Layout{0, 96, 104}), layout(tokens, tokens.tokens, tokens.count));
    const db_parsed_where_t where = {};
    EXPECT_EQ((Layout{0, 16, 32, 40}), layout(where, where.column, where.value, where.op));
    const db_parsed_where_set_t set = {};
    EXPECT_EQ((Layout{0, 240, 248}), layout(set, set.where, set.count));
    const db_bytes_t bytes = {};
    EXPECT_EQ((Layout{0, 8, 16}), layout(bytes, bytes.data, bytes.len));
    const db_column_schema_t schema = {};
    EXPECT_EQ((Layout{0, 8, 12, 16}), layout(schema, schema.name, schema.name_len, schema.flags));
    const db_column_value_t value = {};
    EXPECT_EQ((Layout{0, 8, 16, 24}), layout(value, value.flags, value.data, value.len));
    const db_row row = {};
    EXPECT_EQ((Layout{0, 8, 152, 160}), layout(row, row.flags, row.col, row.next));
    const db_table_t table = {};
    EXPECT_EQ((Layout{0, 8, 16, 24, 28, 32}),
              layout(table, table.handle, table.head, table.tail, table.count, table.reserved));
    EXPECT_EQ(4 * sizeof(void*), sizeof(command_handler));
}

TEST(Abi, OperationObject) {
    const ZelKeymasterOperation object(nullptr, false);
    // First comes the pointer to the virtual table.
    EXPECT_EQ((Layout{8, 16, 24, 32, 40, 48, 56}), ZelKeymasterOperationPeer::of(object));
    EXPECT_EQ(4u, sizeof(PW_ENCRYPT_TYPE));
    EXPECT_EQ(4u, sizeof(zelkm_result));
}

// The sizes of strings and vectors are the C++ library's, not this library's.
TEST(Abi, OperationParameters) {
    SODOperationParam p;
    constexpr size_t kString = sizeof(std::string);
    constexpr size_t kLists = 7 * kString;
    constexpr size_t kList = sizeof(std::vector<std::string>);
    EXPECT_EQ(
        (Layout{0, kString, 2 * kString, 3 * kString, 4 * kString, 5 * kString, 6 * kString, kLists,
                kLists + kList, kLists + 2 * kList, kLists + 3 * kList, kLists + 4 * kList,
                kLists + 5 * kList}),
        layout(p, p.mAliasName, p.mCreatorName, p.mAdminName, p.mAccessorName, p.mCreatorUidName,
               p.mPrivAccName, p.mPrivAccValue, p.getColumnList(), p.getDataList(),
               p.getWhereColumnList(), p.getWhereValueList(), p.getOutputFormat()));
}

// ---- The platform's stand-ins -------------------------------------------------------------------

using namespace android::hardware::keymaster::V4_0;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;

// These types have no constructor and no initialiser: T() is zero, and a plain declaration sets
// nothing.
static_assert(std::is_aggregate_v<HardwareAuthToken> && std::is_aggregate_v<KeyParameter>);
static_assert(std::is_trivially_default_constructible_v<KeyParameter::IntegerParams>);
static_assert(std::is_final_v<KeyParameter> && std::is_final_v<HardwareAuthToken>);
// Only data() gives a pointer.
static_assert(!std::is_convertible_v<decltype(std::declval<hidl_vec<int>&>().begin()), int*>);
// The two forms of a tag agree in all 32 bits.
static_assert(static_cast<uint32_t>(Tag::NONCE) == static_cast<uint32_t>(KM_TAG_NONCE));

TEST(ReturnDeathTest, FailureHasToBeLookedAt) {
    const auto fail = [] { return Return<void>(Status::fromStatusT(android::DEAD_OBJECT)); };
    const char kUnchecked[] = "Failed HIDL return status not checked: Status\\(EX_TRANSACTION";
    EXPECT_DEATH(fail(), kUnchecked);
    EXPECT_DEATH({ fail().description(); }, kUnchecked);
    Return<void> first = fail();
    Return<void> second = std::move(first);  // the duty to look moves along
    EXPECT_DEATH({ Return<void> third = std::move(second); }, kUnchecked);
    EXPECT_TRUE(second.isDeadObject());  // which is a look
}

}  // namespace
