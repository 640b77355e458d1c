// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The conversion of the older interface's parameters into those of the newer one.

#include "keymaster_params.h"

#include "fake_keymaster.h"

namespace {

TEST(ParameterConversion, CopiesValuesByTypeAndBorrowsBytes) {
    const uint8_t data[] = {'x', 'y'};
    keymaster_key_param_t params[12] = {};
    for (uint32_t type = 0; type < 12; ++type) {
        params[type].tag = static_cast<keymaster_tag_t>((type << 28) | 5);
        params[type].long_integer = 0x1122334455667700 + type;
    }
    params[7].boolean = true;
    params[8].blob = {data, 2};
    params[9].blob = {data, 1};
    const zelkm::HidlParams converted = zelkm::kmParamSet2Hidl({params, 12});
    ASSERT_EQ(12u, converted.size());
    EXPECT_EQ(
        "[0x00000005=0x0 0x10000005=0x55667701 DIGEST=0x55667702 0x30000005=0x55667703 "
        "0x40000005=0x55667704 0x50000005=0x1122334455667705 0x60000005=0x1122334455667706 "
        "0x70000005=true 0x80000005=xy 0x90000005=x 0xA0000005=0x112233445566770a 0xB0000005=0x0]",
        test::described(converted));
    EXPECT_EQ(data, converted[8].blob.data());
    EXPECT_EQ(data, converted[9].blob.data());
    for (uint32_t type = 0; type < 12; ++type) {
        const bool known = type != 0 && type != 11;  // the others lose their tag in the input
        EXPECT_EQ(known ? (type << 28) | 5 : 0, static_cast<uint32_t>(params[type].tag))
            << "type " << type;
    }
    EXPECT_EQ(0u, zelkm::kmParamSet2Hidl({params, 0}).size());
    EXPECT_EQ(0u, zelkm::kmParamSet2Hidl({nullptr, 3}).size());
}

TEST(ParameterConversionDeathTest, RefusesBytesBeyond32BitLengths) {
    const uint8_t byte = 0;
    keymaster_key_param_t param = {};
    param.tag = KM_TAG_NONCE;
    param.blob = {&byte, size_t{1} << 32};
    EXPECT_DEATH(zelkm::kmParamSet2Hidl({&param, 1}), "external vector size exceeds 2.32 elements");
}

}  // namespace
