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
    const struct {
        const char* name;
        Delivery delivery;
        int error;
        std::vector<Bytes> chain;
    } cases[] = {
        // clang-format off
        {"one element", Delivery::kWhole, 0, {bytes("request")}},
        {"one empty element", Delivery::kWhole, 0, {Bytes()}},
        {"no element", Delivery::kWhole, 0, {}},
        {"two elements", Delivery::kWhole, 0, {bytes("a"), bytes("b")}},
        {"refused with an element", Delivery::kWhole, ZELKM_INVALID_KEY_BLOB, {bytes("request")}},
        {"no callback", Delivery::kNoCallback, 0, {}},
        {"lost before the callback", Delivery::kLostBefore, 0, {}},
        {"lost after the callback", Delivery::kLostAfter, ZELKM_INVALID_KEY_BLOB, {}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        km.answers["attestKey"] = {{c.delivery, c.error, {}, {}, 0, 0, c.chain}};
        csr = bytes("before");
        test::clearLog();
        km.calls.clear();
        const int result = object->generateCSR(key, {}, csr);
        expectReported(c.name, result, {{"csr", text(csr)}});
    }
    test::clearLog();
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, alone->generateCSR(key, {}, csr));
    EXPECT_EQ((Lines{"E object: AttestKey: invalid IZelkeymasterDevice pointer"}), test::log());
}

}  // namespace
