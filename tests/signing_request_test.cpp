// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Signing requests: the call to the keymaster, and the outcome of each answer.

#include "fake_keymaster_fixture.h"

namespace {

using namespace test;

class SigningRequest : public OverFakeKeymaster {
  protected:
    const hidl_vec<uint8_t> key = bytes("key");
    hidl_vec<uint8_t> csr = bytes("before");
};

TEST_F(SigningRequest, AddsItsTagToACopyUnlessItIsThere) {
    const KeyParameter challenge = test::param(Tag::ATTESTATION_CHALLENGE, bytes("challenge"));
    KeyParameter asked = {};  // with the value false
    asked.tag = TAG_GENERATE_CSR;
    const struct {
        hidl_vec<KeyParameter> params;
        std::string sent;
    } cases[] = {
        {{}, "attestKey key [GENERATE_CSR=true]"},
        {{challenge}, "attestKey key [ATTESTATION_CHALLENGE=challenge GENERATE_CSR=true]"},
        {{asked, challenge}, "attestKey key [GENERATE_CSR=false ATTESTATION_CHALLENGE=challenge]"},
    };
    km.answers["attestKey"] = {Answer()};
    for (const auto& c : cases) {
        const std::string before = test::described(c.params);
        EXPECT_EQ(0, object->generateCSR(key, c.params, csr));
        EXPECT_EQ(c.sent, km.calls.back());
        EXPECT_EQ(before, test::described(c.params));
    }
}

TEST_F(SigningRequest, EachAnswer) {
    const std::string start = "D object: GenerateCSR start";
    const std::string lost = "E object: GenerateCSR: IZelkeymasterDevice void error";
    const struct {
        const char* name;
        Delivery delivery;
        int error;
        std::vector<Bytes> chain;
        int result;
        Lines log;
        std::string csr;
    } cases[] = {
        // clang-format off
        {"one element", Delivery::kWhole, 0, {bytes("request")}, 0, {start}, "request"},
        {"one empty element", Delivery::kWhole, 0, {Bytes()}, 0, {start}, ""},
        {"no element", Delivery::kWhole, 0, {}, 0, {start}, "before"},
        {"two elements", Delivery::kWhole, 0, {bytes("a"), bytes("b")}, 0, {start}, "before"},
        {"refused with an element", Delivery::kWhole, ZELKM_INVALID_KEY_BLOB, {bytes("request")},
         ZELKM_INVALID_KEY_BLOB, {start}, "before"},
        {"no callback", Delivery::kNoCallback, 0, {}, ZELKM_UNKNOWN_ERROR, {start}, "before"},
        {"lost before the callback", Delivery::kLostBefore, 0, {}, ZELKM_UNKNOWN_ERROR,
         {start, lost}, "before"},
        {"lost after the callback", Delivery::kLostAfter, ZELKM_INVALID_KEY_BLOB, {},
         ZELKM_UNKNOWN_ERROR, {start, lost}, "before"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        km.answers["attestKey"] = {{c.delivery, c.error, {}, {}, 0, 0, c.chain}};
        csr = bytes("before");
        test::clearLog();
        EXPECT_EQ(named(c.result), named(object->generateCSR(key, {}, csr)));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(bytes(c.csr), Bytes(csr));
    }
    test::clearLog();
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, alone->generateCSR(key, {}, csr));
    EXPECT_EQ((Lines{"E object: AttestKey: invalid IZelkeymasterDevice pointer"}), test::log());
}

}  // namespace
