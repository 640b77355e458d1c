// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The host's stand-ins for the platform: ownership, and the mistakes that end the process.

#include <android/hardware/keymaster/4.0/types.h>
#include <gtest/gtest.h>
#include <hardware/keymaster_defs.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;
using namespace android::hardware::keymaster::V4_0;

using Blob = hidl_vec<uint8_t>;

TEST(HidlVec, CopiesOwnAndViewsBorrow) {
    uint8_t bytes[] = {1, 2, 3};
    Blob view;
    view.setToExternal(bytes, sizeof(bytes));
    const Blob copy = view;
    bytes[0] = 9;
    EXPECT_EQ(bytes, view.data());
    EXPECT_EQ(9, view[0]);
    EXPECT_EQ(1, copy[0]);
    EXPECT_NE(view, copy);

    view.resize(4);  // a copy of its own from here on
    EXPECT_NE(bytes, view.data());
    EXPECT_EQ((Blob{9, 2}), Blob(view.begin(), view.begin() + 2));
}

TEST(HidlVec, MovedFromKeepsPointerAndSizeWithoutOwning) {
    Blob from{1, 2};
    const uint8_t* const data = from.data();
    Blob to{5};
    to = std::move(from);
    EXPECT_EQ(data, to.data());
    EXPECT_EQ(data, from.data());  // NOLINT: what is tested
    EXPECT_EQ(2u, from.size());
    from.resize(1);  // must not free what `to` owns
    EXPECT_EQ(2, to[1]);
}

// These types have no constructor and no initialiser: T() is zero, and a plain declaration sets
// nothing.
static_assert(std::is_aggregate_v<HardwareAuthToken> && std::is_aggregate_v<KeyParameter>);
static_assert(std::is_trivially_default_constructible_v<KeyParameter::IntegerParams>);
static_assert(std::is_final_v<KeyParameter> && std::is_final_v<HardwareAuthToken>);
// Only data() gives a pointer.
static_assert(!std::is_convertible_v<decltype(std::declval<Blob&>().begin()), uint8_t*>);
// The two forms of a tag agree in all 32 bits.
static_assert(static_cast<uint32_t>(Tag::NONCE) == static_cast<uint32_t>(KM_TAG_NONCE));

TEST(ReturnDeathTest, FailureHasToBeLookedAt) {
    const auto fail = [] { return Return<void>(Status::fromStatusT(android::DEAD_OBJECT)); };
    const char kUnchecked[] = "Failed HIDL return status not checked: Status\\(EX_TRANSACTION";
    EXPECT_DEATH(fail(), kUnchecked);
    EXPECT_DEATH({ fail().description(); }, kUnchecked);
    EXPECT_DEATH({ fail() = Void(); }, kUnchecked);
    const Return<ErrorCode> no_value = Status::fromStatusT(android::DEAD_OBJECT);
    EXPECT_DEATH(static_cast<void>(ErrorCode(no_value)), "Attempted to retrieve value");
    EXPECT_FALSE(no_value.isOk());

    Return<void> first = fail();
    Return<void> second = std::move(first);  // the duty to look moves along
    EXPECT_DEATH({ Return<void> third = std::move(second); }, kUnchecked);
    EXPECT_TRUE(second.isDeadObject());  // which is a look
    const ErrorCode value = Return<ErrorCode>(ErrorCode::INVALID_TAG);
    EXPECT_EQ(ErrorCode::INVALID_TAG, value);
}

}  // namespace
