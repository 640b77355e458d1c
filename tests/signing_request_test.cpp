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
    km.answers["attestKey"] = {answered()};
    for (const auto& c : cases) {
        const std::string before = test::described(c.params);
        EXPECT_EQ(0, object->generateCSR(key, c.params, csr));
        EXPECT_EQ(c.sent, km.calls.back());
        EXPECT_EQ(before, test::described(c.params));
    }
}

TEST_F(SigningRequest, EachAnswer) {
    const auto with = [](std::vector<hidl_vec<uint8_t>> chain, int error = 0) {
        Answer answer = refused(error);
        answer.chain = std::move(chain);
        return answer;
    };
    const std::pair<const char*, Answer> cases[] = {
        // clang-format off
        {"one element", with({bytes("request")})},
        {"one empty element", with({Bytes()})},
        {"no element", answered()},
        {"two elements", with({bytes("a"), bytes("b")})},
        {"refused with an element", with({bytes("request")}, ZELKM_INVALID_KEY_BLOB)},
        {"no callback", kNoCallback},
        {"lost before the callback", lost()},
        {"lost after the callback", lost(refused(ZELKM_INVALID_KEY_BLOB))},
        // clang-format on
    };
    for (const auto& [name, answer] : cases) {
        SCOPED_TRACE(name);
        km.answers["attestKey"] = {answer};
        csr = bytes("before");
        test::clearLog();
        km.calls.clear();
        const int result = object->generateCSR(key, {}, csr);
        expectReported(name, result, {{"csr", text(csr)}});
    }
    test::clearLog();
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, alone->generateCSR(key, {}, csr));
    EXPECT_EQ((Lines{"E object: AttestKey: invalid IZelkeymasterDevice pointer"}), test::log());
}

}  // namespace
