// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The software keymaster's answers, call by call. They are those of the platform's own software
// keymaster, except where the interface's text says otherwise.

#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include "keymaster_calls.h"

namespace {

using namespace soft_keymaster;
using namespace test;

struct Row {
    const char* call;
    ErrorCode wanted;
    ErrorCode answered;
};

void expectAll(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(row.wanted, row.answered) << row.call;
    }
}

class SoftKeymasterAnswers : public test::InTempDir {
  protected:
    ErrorCode generateAes(const Params& changes) {
        return generate(km_, with(kAesKey, changes)).error;
    }
    ErrorCode generateMac(uint32_t bits) { return generateAes({param(Tag::MIN_MAC_LENGTH, bits)}); }
    ErrorCode generateEc(const Params& params) {
        return generate(km_, with(params, {param(Tag::ALGORITHM, Algorithm::EC)})).error;
    }
    // Begins an operation and aborts it.
    ErrorCode begun(KeyPurpose purpose, const Bytes& key, const Params& params) {
        const Result result = test::begin(km_, purpose, key, params);
        EXPECT_EQ(result.error == Error::OK, km_.abort(result.handle) == Error::OK);
        return result.error;
    }
    ErrorCode encrypts(const Params& changes) { return begun(kEncrypt, key_, with(kGcm, changes)); }

    SoftKeymaster km_{{"root", kPatchLevel, 0, 2}};
    const Bytes key_ = generate(km_, kAesKey).output;
    const KeyParameter id_ = param(Tag::APPLICATION_ID, bytes("client"));
    const KeyParameter data_ = param(Tag::APPLICATION_DATA, bytes("data"));
};

TEST_F(SoftKeymasterAnswers, ToGenerateKey) {
    constexpr auto kPkcs7 = PaddingMode::PKCS7;
    Params no_block_mode = kAesKey;
    no_block_mode.erase(no_block_mode.begin() + 2);
    Params no_min_mac = kAesKey;
    no_min_mac.pop_back();
    expectAll({
        {"no algorithm", Error::UNSUPPORTED_ALGORITHM, generate(km_, {}).error},
        {"HMAC", Error::UNSUPPORTED_ALGORITHM,
         generateAes({param(Tag::ALGORITHM, Algorithm::HMAC)})},
        {"128 bits", Error::OK, generateAes({param(Tag::KEY_SIZE, 128)})},
        {"192 bits", Error::OK, generateAes({param(Tag::KEY_SIZE, 192)})},
        {"264 bits", Error::UNSUPPORTED_KEY_SIZE, generateAes({param(Tag::KEY_SIZE, 264)})},
        {"no mode", Error::INVALID_TAG, generate(km_, no_block_mode).error},
        {"CBC", Error::INVALID_TAG, generateAes({param(Tag::BLOCK_MODE, BlockMode::CBC)})},
        {"mode 99", Error::INVALID_TAG, generateAes({param(Tag::BLOCK_MODE, 99)})},
        {"PKCS7", Error::OK, generateAes({param(Tag::PADDING, kPkcs7)})},
        {"padding 99", Error::OK, generateAes({param(Tag::PADDING, 99)})},
        {"to sign", Error::OK, generateAes({param(Tag::PURPOSE, KeyPurpose::SIGN)})},
        {"no MAC", Error::MISSING_MIN_MAC_LENGTH, generate(km_, no_min_mac).error},
        {"MAC 0", Error::UNSUPPORTED_MIN_MAC_LENGTH, generateMac(0)},
        {"MAC 64", Error::UNSUPPORTED_MIN_MAC_LENGTH, generateMac(64)},
        {"MAC 88", Error::UNSUPPORTED_MIN_MAC_LENGTH, generateMac(88)},
        {"MAC 96", Error::OK, generateMac(96)},
        {"MAC 100", Error::UNSUPPORTED_MIN_MAC_LENGTH, generateMac(100)},
        {"MAC 136", Error::UNSUPPORTED_MIN_MAC_LENGTH, generateMac(136)},
        {"root of trust", Error::INVALID_TAG, generateAes({param(Tag::ROOT_OF_TRUST, Bytes{1})})},
        {"EC 224", Error::OK, generateEc({param(Tag::KEY_SIZE, 224)})},
        {"EC 256", Error::OK, generateEc({param(Tag::KEY_SIZE, 256)})},
        {"EC 384", Error::OK, generateEc({param(Tag::KEY_SIZE, 384)})},
        {"EC 255", Error::UNSUPPORTED_KEY_SIZE, generateEc({param(Tag::KEY_SIZE, 255)})},
        {"EC P-384 of 256 bits", Error::UNSUPPORTED_KEY_SIZE,
         generateEc({param(Tag::EC_CURVE, EcCurve::P_384), param(Tag::KEY_SIZE, 256)})},
        {"EC", Error::UNSUPPORTED_KEY_SIZE, generateEc({})},
        {"EC curve 9", Error::UNSUPPORTED_EC_CURVE, generateEc({param(Tag::EC_CURVE, 9)})},
        {"RSA 1024", Error::UNSUPPORTED_KEY_SIZE,
         generate(km_, with(kRsaKey, {param(Tag::KEY_SIZE, 1024)})).error},
        {"RSA 3", Error::INVALID_ARGUMENT,
         generate(km_, with(kRsaKey, {param(Tag::RSA_PUBLIC_EXPONENT, 3)})).error},
    });

    // The keymaster knows its versions, and drops what it does not know.
    const Result known =
        generate(km_, with(kAesKey, {param(Tag::OS_VERSION, 1), param(Tag::OS_PATCHLEVEL, 2),
                                     param(Tag::INVALID, 3), param(Tag(0xB0000001), 4)}));
    EXPECT_EQ(Error::OK, known.error);
    EXPECT_EQ(11u, known.params.size());
    const std::string listed = described(characteristics(km_, known.output).params);
    EXPECT_NE(std::string::npos, listed.find(" ORIGIN=0x0 CREATION_DATETIME=")) << listed;
    EXPECT_NE(std::string::npos, listed.find(" OS_VERSION=0x186a0 OS_PATCHLEVEL=0x31769]"))
        << listed;
}

TEST_F(SoftKeymasterAnswers, ToBegin) {
    const KeyParameter nonce = param(Tag::NONCE, Bytes(12, 'n'));
    const KeyParameter odd_nonce = param(Tag::NONCE, Bytes(11));
    const Params free = {param(Tag::CALLER_NONCE, 1), param(Tag::MIN_MAC_LENGTH, 96)};
    const Bytes any_nonce = generate(km_, with(kAesKey, free)).output;
    const Bytes encrypts_only =
        generate(km_, with(kAesKey, {param(Tag::PURPOSE, kEncrypt)})).output;
    const Bytes padded =
        generate(km_, with(kAesKey, {param(Tag::PADDING, PaddingMode::PKCS7)})).output;
    const Bytes ec = generate(km_, kEcKey).output;
    Params no_mac = kGcm, two_modes = kGcm, two_paddings = kGcm;
    no_mac.pop_back();
    two_modes.push_back(param(Tag::BLOCK_MODE, BlockMode::CBC));
    two_paddings.push_back(param(Tag::PADDING, PaddingMode::NONE));
    const Params with_nonce = with(kGcm, {nonce});
    expectAll({
        {"no blob", Error::INVALID_KEY_BLOB, begun(kEncrypt, bytes("none"), kGcm)},
        {"CTR", Error::INCOMPATIBLE_BLOCK_MODE, encrypts({param(Tag::BLOCK_MODE, BlockMode::CTR)})},
        {"mode 99", Error::UNSUPPORTED_BLOCK_MODE, encrypts({param(Tag::BLOCK_MODE, 99)})},
        {"two modes", Error::UNSUPPORTED_BLOCK_MODE, begun(kEncrypt, key_, two_modes)},
        {"PKCS7", Error::INCOMPATIBLE_PADDING_MODE,
         encrypts({param(Tag::PADDING, PaddingMode::PKCS7)})},
        {"a padding that the key has not", Error::INCOMPATIBLE_PADDING_MODE,
         begun(kEncrypt, padded, kGcm)},
        {"padding 99", Error::UNSUPPORTED_PADDING_MODE, encrypts({param(Tag::PADDING, 99)})},
        {"two paddings", Error::UNSUPPORTED_PADDING_MODE, begun(kEncrypt, key_, two_paddings)},
        {"no MAC length", Error::MISSING_MAC_LENGTH, begun(kEncrypt, key_, no_mac)},
        {"MAC 0", Error::INVALID_MAC_LENGTH, encrypts({param(Tag::MAC_LENGTH, 0)})},
        {"MAC 64", Error::INVALID_MAC_LENGTH, encrypts({param(Tag::MAC_LENGTH, 64)})},
        {"MAC 120", Error::INVALID_MAC_LENGTH, encrypts({param(Tag::MAC_LENGTH, 120)})},
        {"MAC 127", Error::UNSUPPORTED_MAC_LENGTH, encrypts({param(Tag::MAC_LENGTH, 127)})},
        {"MAC 96", Error::OK, begun(kEncrypt, any_nonce, with(kGcm, {param(Tag::MAC_LENGTH, 96)}))},
        {"decrypt, no nonce", Error::MISSING_NONCE, begun(kDecrypt, key_, kGcm)},
        {"decrypt, 11 bytes", Error::INVALID_NONCE, begun(kDecrypt, key_, with(kGcm, {odd_nonce}))},
        {"own nonce", Error::CALLER_NONCE_PROHIBITED, encrypts({nonce})},
        {"encrypt only", Error::INCOMPATIBLE_PURPOSE, begun(kDecrypt, encrypts_only, with_nonce)},
        {"sign", Error::UNSUPPORTED_PURPOSE, begun(KeyPurpose::SIGN, key_, kGcm)},
        {"verify", Error::UNSUPPORTED_PURPOSE, begun(KeyPurpose::VERIFY, key_, kGcm)},
        {"wrap", Error::UNSUPPORTED_PURPOSE, begun(KeyPurpose::WRAP_KEY, key_, kGcm)},
        {"purpose 99", Error::UNSUPPORTED_PURPOSE, begun(KeyPurpose(99), key_, kGcm)},
        {"a client's id", Error::INVALID_KEY_BLOB, encrypts({id_})},
        {"EC, sign", Error::UNIMPLEMENTED, begun(KeyPurpose::SIGN, ec, {})},
    });
    const Result begun_with_nonce = test::begin(km_, kEncrypt, any_nonce, with_nonce);
    EXPECT_EQ(described(Params{nonce}), described(begun_with_nonce.params));

    // Of two entries of associated data the first counts.
    const KeyParameter first = param(Tag::ASSOCIATED_DATA, bytes("first"));
    const KeyParameter other = param(Tag::ASSOCIATED_DATA, bytes("other"));
    const uint64_t sealing = begun_with_nonce.handle;
    Bytes sealed = update(km_, sealing, {first, other}, bytes("te")).output;
    const Bytes rest = finish(km_, sealing, bytes("xt")).output;
    sealed.insert(sealed.end(), rest.begin(), rest.end());
    const uint64_t opening = test::begin(km_, kDecrypt, any_nonce, with_nonce).handle;
    EXPECT_EQ(bytes("text"), update(km_, opening, {first}, sealed).output);
    EXPECT_EQ(Error::OK, finish(km_, opening).error);
}

TEST_F(SoftKeymasterAnswers, ToUpdateAndFinish) {
    const Params header = {param(Tag::ASSOCIATED_DATA, bytes("h"))};
    const Params nonce = with(kGcm, {param(Tag::NONCE, Bytes(12))});
    const uint64_t first = test::begin(km_, kEncrypt, key_, kGcm).handle;
    const uint64_t second = test::begin(km_, kDecrypt, key_, nonce).handle;
    // In braces the calls are made in the order in which they stand.
    expectAll({
        {"one too many", Error::TOO_MANY_OPERATIONS, begun(kEncrypt, key_, kGcm)},
        {"header first", Error::OK, update(km_, first, header, {1}).error},
        {"header too late", Error::INVALID_TAG, update(km_, first, header, {}).error},
        {"which is the end", Error::INVALID_OPERATION_HANDLE, update(km_, first, {}, {1}).error},
        {"less than a tag", Error::INVALID_INPUT_LENGTH, finish(km_, second, Bytes(15)).error},
        {"again", Error::INVALID_OPERATION_HANDLE, finish(km_, second).error},
    });
}

TEST_F(SoftKeymasterAnswers, ToTheOtherCalls) {
    const Params asked = {param(Tag::ATTESTATION_CHALLENGE, bytes("challenge")),
                          param(Tag::ATTESTATION_APPLICATION_ID, bytes("app"))};
    const Bytes ec = generate(km_, kEcKey).output;
    Bytes altered = key_;
    altered[5] ^= 1;
    const Params imei = with(asked, {param(Tag::ATTESTATION_ID_IMEI, bytes("1"))});
    expectAll({
        {"attest AES", Error::INCOMPATIBLE_ALGORITHM, attest(km_, key_, asked).error},
        {"attest an IMEI", Error::CANNOT_ATTEST_IDS, attest(km_, ec, imei).error},
        {"delete an altered blob", Error::OK, km_.deleteKey(altered)},
        {"delete all", Error::OK, km_.deleteAllKeys()},
        {"afterwards", Error::OK, check(km_, key_)},
        {"entropy", Error::OK, km_.addRngEntropy(Bytes(2048))},
        {"too much entropy", Error::INVALID_INPUT_LENGTH, km_.addRngEntropy(Bytes(2049))},
        {"export AES", Error::UNSUPPORTED_KEY_FORMAT, made(km_, {Call::kExportKey, key_}).error},
    });
}

TEST_F(SoftKeymasterAnswers, ToAnotherClientThanTheKeys) {
    FaultKeymaster km(km_);  // which passes on what the library never gives
    const Bytes bound = generate(km, with(kAesKey, {id_, data_})).output;
    const auto use = [&](const Params& client) {
        return begun(kEncrypt, bound, with(kGcm, client));
    };
    const auto asked = [&](Call call, const KeyParameter& id, const KeyParameter& data) {
        CallRecord record = {call, bound};
        record.client_id = id.blob;
        record.client_data = data.blob;
        record.format = KeyFormat::X509;
        const ErrorCode error = made(km, record).error;
        EXPECT_EQ(call == Call::kExportKey, km.calls().back().format == KeyFormat::X509);
        return error;
    };
    const KeyParameter other = param(Tag::APPLICATION_ID, bytes("Client"));
    expectAll({
        {"both", Error::OK, use({id_, data_})},
        {"both, characteristics", Error::OK, asked(Call::kGetKeyCharacteristics, id_, data_)},
        {"both, export", Error::UNSUPPORTED_KEY_FORMAT, asked(Call::kExportKey, id_, data_)},
        {"both, upgrade", Error::OK, made(km, {Call::kUpgradeKey, bound, {id_, data_}}).error},
        {"none", Error::INVALID_KEY_BLOB, use({})},
        {"one", Error::INVALID_KEY_BLOB, use({id_})},
        {"another", Error::INVALID_KEY_BLOB, use({other, data_})},
        {"none, characteristics", Error::INVALID_KEY_BLOB, check(km, bound)},
        {"swapped", Error::INVALID_KEY_BLOB, asked(Call::kGetKeyCharacteristics, data_, id_)},
        {"swapped, export", Error::INVALID_KEY_BLOB, asked(Call::kExportKey, data_, id_)},
        {"none, upgrade", Error::INVALID_KEY_BLOB, upgrade(km, bound).error},
        {"none, attest", Error::INVALID_KEY_BLOB, attest(km, bound, {}).error},
    });
    km.alterCalls([](CallRecord& call) { call.key_blob = {}; });
    km.reset();
    EXPECT_EQ(Error::OK, check(km, key_));
    km.planEach(Call::kBegin, Fault::nonceSize(13));
    EXPECT_EQ(13u, test::begin(km, kEncrypt, key_, kGcm).params.at(0).blob.size());
}

}  // namespace
