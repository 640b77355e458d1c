// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion: the one call that it makes, what it takes out of the answer, and what it
// leaves alone on a failure.

#include "fake_keymaster_fixture.h"
#include "wiped_memory.h"

namespace {

using namespace test;

constexpr PW_ENCRYPT_TYPE kToKey = PW_ENCRYPT_TYPE_TO_KEY;
constexpr PW_ENCRYPT_TYPE kEncrypt = PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY;

class Password : public OverFakeKeymaster {
  protected:
    Code convert(PW_ENCRYPT_TYPE type) {
        return object->encryptWithPasswordHWKey(in[0], in[1], in[2], converted, in[3], in[4], tag,
                                                rot, type);
    }
    Password() { peer.setKeyBlob(bytes("never sent")); }
    void start(const std::vector<KeyParameter>& out_params, int error = 0) {
        Answer answer = refused(error);
        answer.params = out_params;
        km.answers["begin"] = {answer};
        km.calls.clear();
        converted = bytes("before");
        tag = bytes("tag before");
        rot = bytes("rot before");
        test::clearLog();
    }

    const hidl_vec<uint8_t> in[5] = {bytes("one"), bytes("two"), bytes("material"), bytes("three"),
                                     bytes("four")};
    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> tag;
    hidl_vec<uint8_t> rot;
};

TEST_F(Password, SendsCopiesInOrderAndNoKey) {
    const std::string inputs = "[IN_1=one IN_2=two IN_3=three IN_4=four ";
    start({}, ZELKM_UNSUPPORTED_PURPOSE);
    EXPECT_EQ(ZELKM_UNSUPPORTED_PURPOSE, convert(kToKey));
    EXPECT_EQ(ZELKM_UNSUPPORTED_PURPOSE, convert(kEncrypt));
    EXPECT_EQ((Lines{"begin TO_KEY  " + inputs + "ENCRYPTED_KEY=material]",
                     "begin TO_ENCRYPTED_KEY  " + inputs + "KEY=material TAG=tag before]"}),
              km.calls);
    EXPECT_EQ(0u, km.seen.count(tag.data()));
    for (const hidl_vec<uint8_t>& given : in) {
        EXPECT_EQ(0u, km.seen.count(given.data()));
    }
}

TEST_F(Password, ShortFormKeepsTheRotToItselfAndWipesTheCopiesThatItSent) {
    start({param(PWHW_TAG_ROT, bytes("rotrotrotrotrot!")),
           param(PWHW_TAG_ENCRYPTED_KEY, bytes("encrypted"))});
    EXPECT_EQ(0, object->encryptWithPasswordHWKey(in[0], in[1], in[2], converted, in[3], in[4], tag,
                                                  kEncrypt));
    EXPECT_EQ((Lines{"begin TO_ENCRYPTED_KEY  [IN_1=one IN_2=two IN_3=three IN_4=four "
                     "KEY=material TAG=tag before]"}),
              km.calls);
    EXPECT_EQ(Lines(), test::log());
    EXPECT_EQ("encrypted", text(converted));
    for (const char* sent : {"one", "two", "three", "four", "material", "tag before"}) {
        EXPECT_TRUE(test::wiped(sent)) << sent;
    }
    EXPECT_TRUE(test::wiped("rotrotrotrotrot!"));  // nobody gets it
    EXPECT_EQ("material", text(in[2]));
    EXPECT_EQ("tag before", text(tag));
}

TEST_F(Password, EachAnswer) {
    const auto sized = [](Tag which, size_t size) { return param(which, Bytes(size, 'x')); };
    const KeyParameter rot16 = param(PWHW_TAG_ROT, bytes("rotrotrotrotrot!"));
    const KeyParameter rot15 = sized(PWHW_TAG_ROT, 15);
    const KeyParameter rot17 = sized(PWHW_TAG_ROT, 17);
    const KeyParameter tag16 = param(PWHW_TAG_TAG, bytes("tagtagtagtagtag!"));
    const KeyParameter tag15 = sized(PWHW_TAG_TAG, 15);
    const KeyParameter tag17 = sized(PWHW_TAG_TAG, 17);
    const KeyParameter key = param(PWHW_TAG_KEY, bytes("key"));
    const KeyParameter key0 = sized(PWHW_TAG_KEY, 0);
    const KeyParameter encrypted = param(PWHW_TAG_ENCRYPTED_KEY, bytes("encrypted"));
    const struct {
        const char* name;
        PW_ENCRYPT_TYPE type;
        int error;
        std::vector<KeyParameter> params;
        bool arrives = true;
        bool lost = false;
    } cases[] = {
        // clang-format off
        {"to a key", kToKey, 0, {key, encrypted, tag16, rot16}},
        {"empty key, no rot", kToKey, 0, {tag16, key0}},
        {"no key", kToKey, 0, {tag16, rot16}},
        {"nothing", kToKey, 0, {}},
        {"short tag", kToKey, 0, {tag15, key, rot16}},
        {"long tag", kToKey, 0, {tag17, key, rot16}},
        // The first of two counts, even when the second would do.
        {"short tag before a good one", kToKey, 0, {tag15, tag16, key, rot16}},
        {"long rot before a good one, two keys", kToKey, 0, {rot17, rot16, tag16, key, key0}},
        {"refused with parameters", kToKey, KM_ERROR_INVALID_OPERATION_HANDLE, {rot15, tag16, key}},
        {"to an encrypted key", kEncrypt, 0, {encrypted, tag16, rot16, key}},
        {"no encrypted key", kEncrypt, 0, {key, tag16, rot16}},
        {"refused without tag and rot", kEncrypt, ZELKM_VERIFICATION_FAILED, {encrypted}},
        // A lost call counts as an unknown error, whatever the answer was.
        {"lost after the answer", kEncrypt, KM_ERROR_INVALID_OPERATION_HANDLE, {},
         true, true},
        {"lost before the answer", kToKey, 0, {}, false, true},
        {"no answer", kToKey, 0, {}, false},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        start(c.params, c.error);
        km.answers["begin"][0].arrived = c.arrives;
        km.answers["begin"][0].transport = !c.lost;
        const int result = convert(c.type);
        expectReported(c.name, result,
                       {{"converted", text(converted)},
                        {"tag", text(tag)},
                        {"rot", rot == Bytes(16) ? "zeros" : text(rot)}});
    }
}

TEST_F(Password, ChecksHandleThenInputsThenType) {
    const hidl_vec<uint8_t> empty;
    const volatile int number = 2;  // so that no optimisation knows it
    const auto type = static_cast<PW_ENCRYPT_TYPE>(static_cast<int32_t>(number));
    const auto with = [&](ZelKeymasterOperation& o, size_t left_empty, PW_ENCRYPT_TYPE t) {
        const auto use = [&](size_t i) -> const hidl_vec<uint8_t>& {
            return i == left_empty ? empty : in[i];
        };
        return o.encryptWithPasswordHWKey(use(0), use(1), use(2), converted, use(3), use(4), tag,
                                          rot, t);
    };
    start({});
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, with(*alone, 0, type));
    EXPECT_EQ((Lines{"E object: encryptWithPasswordHWKey: invalid keymaster dev pointer"}),
              test::log());

    start({});
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(ZELKM_INVALID_ARGUMENT, with(*object, i, type)) << "empty: " << text(in[i]);
    }
    tag = empty;
    EXPECT_EQ(ZELKM_INVALID_ARGUMENT, with(*object, 5, kEncrypt));
    EXPECT_EQ(Lines(), test::log());
    EXPECT_EQ(ZELKM_UNSUPPORTED_PURPOSE, with(*object, 5, type));
    EXPECT_EQ((Lines{"E object: not supported mode : 2"}), test::log());
    EXPECT_EQ(Lines(), km.calls);
    EXPECT_EQ("rot before", text(rot));

    start({}, KM_ERROR_UNIMPLEMENTED);
    tag = empty;
    EXPECT_EQ(KM_ERROR_UNIMPLEMENTED, convert(kToKey));  // there the tag is an output only
}

}  // namespace
