// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The software keymaster, through the platform's interface alone, and the decorator around it.

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "fake_keymaster.h"
#include "temp_dir.h"

namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using soft_keymaster::Call;
using soft_keymaster::Fault;
using soft_keymaster::FaultKeymaster;
using soft_keymaster::SoftKeymaster;
using test::bytes;
using test::Bytes;
using test::bytesParameter;
using Params = std::vector<KeyParameter>;

constexpr uint32_t kPatchLevel = 202601;
constexpr size_t kTagSize = 16;

KeyParameter number(Tag tag, uint64_t value) {
    KeyParameter param = {};
    param.tag = tag;
    param.f.longInteger = value;
    return param;
}

template <typename Enum>
KeyParameter choice(Tag tag, Enum value) {
    return number(tag, static_cast<uint64_t>(value));
}

const Params kAesKey = {
    choice(Tag::ALGORITHM, Algorithm::AES),    number(Tag::KEY_SIZE, 256),
    choice(Tag::BLOCK_MODE, BlockMode::GCM),   choice(Tag::PADDING, PaddingMode::NONE),
    choice(Tag::PURPOSE, KeyPurpose::ENCRYPT), choice(Tag::PURPOSE, KeyPurpose::DECRYPT),
    number(Tag::MIN_MAC_LENGTH, 128)};
const Params kEcKey = {choice(Tag::ALGORITHM, Algorithm::EC), number(Tag::KEY_SIZE, 256),
                       choice(Tag::PURPOSE, KeyPurpose::SIGN)};
const Params kRsaKey = {choice(Tag::ALGORITHM, Algorithm::RSA), number(Tag::KEY_SIZE, 2048),
                        number(Tag::RSA_PUBLIC_EXPONENT, 65537),
                        choice(Tag::PURPOSE, KeyPurpose::SIGN)};
const Params kGcm = {choice(Tag::BLOCK_MODE, BlockMode::GCM),
                     choice(Tag::PADDING, PaddingMode::NONE), number(Tag::MAC_LENGTH, 128)};

Params without(Params params, Tag tag) {
    params.erase(std::remove_if(params.begin(), params.end(),
                                [tag](const KeyParameter& param) { return param.tag == tag; }),
                 params.end());
    return params;
}

// `params` with the entries of `changes` in place of those with the same tags.
Params with(Params params, const Params& changes) {
    for (const KeyParameter& change : changes) {
        params = without(params, change.tag);
    }
    params.insert(params.end(), changes.begin(), changes.end());
    return params;
}

// What a call answered, whichever of these it has.
struct Result {
    void put(ErrorCode value) { error = value; }
    void put(const hidl_vec<uint8_t>& value) { output = value; }
    void put(const hidl_vec<KeyParameter>& value) { params = value; }
    void put(const hidl_vec<hidl_vec<uint8_t>>& value) { chain.assign(value.begin(), value.end()); }
    void put(const KeyCharacteristics& value) { params = value.softwareEnforced; }
    void put(uint64_t value) { handle = value; }
    void put(uint32_t value) { consumed = value; }

    bool transport = false;
    ErrorCode error = ErrorCode::VERSION_MISMATCH;  // the callback never ran
    Bytes output;
    Params params;
    std::vector<Bytes> chain;
    uint64_t handle = 0;
    uint32_t consumed = 0;
};

// Runs `call` with a callback for whatever arguments.
template <typename Function>
Result resultOf(Function call) {
    Result result;
    const auto callback = [&result](const auto&... values) { (result.put(values), ...); };
    result.transport = call(callback).isOk();
    return result;
}

// A keymaster with the calls in short form.
struct Client {
    support::Keymaster& km;

    Result generate(const Params& params) {
        return resultOf([&](auto cb) { return km.generateKey(params, cb); });
    }
    ErrorCode check(const Bytes& blob) {
        return resultOf([&](auto cb) { return km.getKeyCharacteristics(blob, {}, {}, cb); }).error;
    }
    Result upgrade(const Bytes& blob) {
        return resultOf([&](auto cb) { return km.upgradeKey(blob, {}, cb); });
    }
    Result attest(const Bytes& blob, const Params& params) {
        return resultOf([&](auto cb) { return km.attestKey(blob, params, cb); });
    }
    Result begin(KeyPurpose purpose, const Bytes& blob, const Params& params) {
        return resultOf(
            [&](auto cb) { return km.begin(purpose, blob, params, HardwareAuthToken(), cb); });
    }
    Result update(uint64_t handle, const Params& params, const Bytes& input) {
        return resultOf([&](auto cb) {
            return km.update(handle, params, input, HardwareAuthToken(), VerificationToken(), cb);
        });
    }
    Result finish(uint64_t handle, const Bytes& input) {
        return resultOf([&](auto cb) {
            return km.finish(handle, {}, input, {}, HardwareAuthToken(), VerificationToken(), cb);
        });
    }

    // A whole operation: as many updates as it takes, then finish.
    Result run(KeyPurpose purpose, const Bytes& blob, const Params& params, const Bytes& input,
               const Bytes& associated_data = bytes("header")) {
        const Result begun = begin(purpose, blob, params);
        Bytes output;
        Params first = {bytesParameter(Tag::ASSOCIATED_DATA, associated_data)};
        for (size_t done = 0; done < input.size(); first.clear()) {
            const Result r =
                update(begun.handle, first, Bytes(input.begin() + long(done), input.end()));
            if (r.error != ErrorCode::OK || r.consumed == 0) {
                return r;
            }
            done += r.consumed;
            output.insert(output.end(), r.output.begin(), r.output.end());
        }
        Result end = finish(begun.handle, {});
        end.output.insert(end.output.begin(), output.begin(), output.end());
        end.params = begun.params;
        return end;
    }
};

SoftKeymaster::Options options(size_t max_update_bytes = 0) {
    SoftKeymaster::Options result;
    result.root_key_path = "root";
    result.patch_level = kPatchLevel;
    result.max_update_bytes = max_update_bytes;
    result.max_operations = 2;
    return result;
}

class SoftKeymasterTest : public test::InTempDir {
  protected:
    Bytes newKey(const Params& params = kAesKey) {
        const Result made = client_.generate(params);
        EXPECT_EQ(ErrorCode::OK, made.error);
        return made.output;
    }

    SoftKeymaster km_{options()};
    Client client_{km_};
};

TEST_F(SoftKeymasterTest, WhatOneInstanceEncryptsAnotherDecrypts) {
    const Bytes key = newKey();
    struct stat info = {};
    ASSERT_EQ(0, stat("root", &info));
    EXPECT_EQ(0600u, info.st_mode & 0777u);

    // Limits that split the tag, the block and everything.
    for (const size_t limit : {size_t{0}, size_t{1}, size_t{7}, kTagSize, size_t{33}}) {
        SoftKeymaster other(options(limit));
        const uint64_t handle = Client{other}.begin(KeyPurpose::ENCRYPT, key, kGcm).handle;
        EXPECT_EQ(limit == 0 ? 50 : limit, Client{other}.update(handle, {}, Bytes(50)).consumed);
        for (const size_t size : {size_t{1}, kTagSize - 1, kTagSize, kTagSize + 1, size_t{100}}) {
            const Bytes plain(size, 'p');
            const Result sealed = Client{other}.run(KeyPurpose::ENCRYPT, key, kGcm, plain);
            ASSERT_EQ(ErrorCode::OK, sealed.error);
            ASSERT_EQ(size + kTagSize, sealed.output.size());
            ASSERT_EQ(1u, sealed.params.size());
            EXPECT_EQ(12u, sealed.params[0].blob.size());
            const Params params = with(kGcm, sealed.params);
            EXPECT_EQ(plain, client_.run(KeyPurpose::DECRYPT, key, params, sealed.output).output);
            const Result opened =
                Client{other}.run(KeyPurpose::DECRYPT, key, params, sealed.output);
            EXPECT_EQ(ErrorCode::OK, opened.error);
            EXPECT_EQ(plain, opened.output);

            Bytes damaged = sealed.output;
            damaged[size - 1] ^= 1;
            EXPECT_EQ(ErrorCode::VERIFICATION_FAILED,
                      Client{other}.run(KeyPurpose::DECRYPT, key, params, damaged).error);
            EXPECT_EQ(ErrorCode::VERIFICATION_FAILED,
                      client_.run(KeyPurpose::DECRYPT, key, params, sealed.output, {}).error);
        }
    }
}

TEST_F(SoftKeymasterTest, RacingInstancesAgreeOnTheRootKey) {
    constexpr int kRacers = 8;
    std::vector<Bytes> keys(kRacers);
    std::vector<std::thread> racers;
    for (Bytes& key : keys) {
        racers.emplace_back([&key] {
            SoftKeymaster km(options());
            key = Client{km}.generate(kAesKey).output;
        });
    }
    for (std::thread& racer : racers) {
        racer.join();
    }
    for (const Bytes& key : keys) {
        EXPECT_EQ(ErrorCode::OK, client_.check(key));
    }
}

TEST_F(SoftKeymasterTest, RefusesKeysItCannotMake) {
    const struct {
        Params key;
        KeyParameter change;
        ErrorCode error;
    } cases[] = {
        {kAesKey, choice(Tag::ALGORITHM, Algorithm::HMAC), ErrorCode::UNSUPPORTED_ALGORITHM},
        {kAesKey, number(Tag::KEY_SIZE, 128), ErrorCode::UNSUPPORTED_KEY_SIZE},
        {kAesKey, choice(Tag::BLOCK_MODE, BlockMode::CBC), ErrorCode::UNSUPPORTED_BLOCK_MODE},
        {kAesKey, choice(Tag::PADDING, PaddingMode::PKCS7), ErrorCode::UNSUPPORTED_PADDING_MODE},
        {kAesKey, choice(Tag::PURPOSE, KeyPurpose::SIGN), ErrorCode::UNSUPPORTED_PURPOSE},
        {kAesKey, number(Tag::MIN_MAC_LENGTH, 64), ErrorCode::UNSUPPORTED_MAC_LENGTH},
        {kAesKey, number(Tag::OS_PATCHLEVEL, 1), ErrorCode::INVALID_TAG},
        {kAesKey, bytesParameter(Tag::APPLICATION_ID, {1}), ErrorCode::UNSUPPORTED_TAG},
        {kAesKey, number(static_cast<Tag>(0xB0000001), 0), ErrorCode::UNSUPPORTED_TAG},
        {kEcKey, choice(Tag::EC_CURVE, EcCurve::P_384), ErrorCode::UNSUPPORTED_EC_CURVE},
        {kRsaKey, number(Tag::KEY_SIZE, 1024), ErrorCode::UNSUPPORTED_KEY_SIZE},
        {kRsaKey, number(Tag::RSA_PUBLIC_EXPONENT, 3), ErrorCode::INVALID_ARGUMENT},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const Result made = client_.generate(with(c.key, {c.change}));
        EXPECT_EQ(c.error, made.error);
        EXPECT_TRUE(made.output.empty());
    }
    EXPECT_EQ(ErrorCode::UNSUPPORTED_ALGORITHM,
              client_.generate(without(kAesKey, Tag::ALGORITHM)).error);
    EXPECT_EQ(ErrorCode::MISSING_MIN_MAC_LENGTH,
              client_.generate(without(kAesKey, Tag::MIN_MAC_LENGTH)).error);
}

TEST_F(SoftKeymasterTest, BeginChecksWhatItIsAskedFor) {
    const Bytes key = newKey();
    const Bytes encrypt_only = newKey(with(kAesKey, {choice(Tag::PURPOSE, KeyPurpose::ENCRYPT)}));
    const Bytes any_nonce =
        newKey(with(kAesKey, {number(Tag::CALLER_NONCE, 1), number(Tag::MIN_MAC_LENGTH, 96)}));
    const KeyParameter nonce = bytesParameter(Tag::NONCE, Bytes(12));
    const KeyParameter odd_nonce = bytesParameter(Tag::NONCE, Bytes(11));
    const auto mac = [](uint32_t bits) { return number(Tag::MAC_LENGTH, bits); };
    const KeyParameter ctr = choice(Tag::BLOCK_MODE, BlockMode::CTR);
    const KeyParameter pkcs7 = choice(Tag::PADDING, PaddingMode::PKCS7);
    const struct {
        KeyPurpose purpose;
        Bytes key;
        Params changes;
        ErrorCode error;
    } cases[] = {
        {KeyPurpose::DECRYPT, key, {}, ErrorCode::MISSING_NONCE},
        {KeyPurpose::DECRYPT, key, {odd_nonce}, ErrorCode::INVALID_NONCE},
        {KeyPurpose::DECRYPT, encrypt_only, {nonce}, ErrorCode::INCOMPATIBLE_PURPOSE},
        {KeyPurpose::ENCRYPT, key, {nonce}, ErrorCode::CALLER_NONCE_PROHIBITED},
        {KeyPurpose::ENCRYPT, any_nonce, {nonce}, ErrorCode::OK},
        {KeyPurpose::ENCRYPT, any_nonce, {odd_nonce}, ErrorCode::INVALID_NONCE},
        {KeyPurpose::ENCRYPT, any_nonce, {mac(96)}, ErrorCode::OK},
        {KeyPurpose::ENCRYPT, key, {mac(120)}, ErrorCode::INVALID_MAC_LENGTH},
        {KeyPurpose::ENCRYPT, key, {mac(127)}, ErrorCode::UNSUPPORTED_MAC_LENGTH},
        {KeyPurpose::ENCRYPT, key, {mac(136)}, ErrorCode::UNSUPPORTED_MAC_LENGTH},
        {KeyPurpose::ENCRYPT, key, {ctr}, ErrorCode::INCOMPATIBLE_BLOCK_MODE},
        {KeyPurpose::ENCRYPT, key, {pkcs7}, ErrorCode::INCOMPATIBLE_PADDING_MODE},
        {KeyPurpose::ENCRYPT, newKey(kEcKey), {}, ErrorCode::UNIMPLEMENTED},
        {KeyPurpose::ENCRYPT, bytes("no blob"), {}, ErrorCode::INVALID_KEY_BLOB},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const Result begun = client_.begin(c.purpose, c.key, with(kGcm, c.changes));
        EXPECT_EQ(c.error, begun.error);
        EXPECT_EQ(c.error == ErrorCode::OK ? ErrorCode::OK : ErrorCode::INVALID_OPERATION_HANDLE,
                  ErrorCode(km_.abort(begun.handle)));
    }
    EXPECT_EQ(ErrorCode::MISSING_MAC_LENGTH,
              client_.begin(KeyPurpose::ENCRYPT, key, without(kGcm, Tag::MAC_LENGTH)).error);
}

TEST_F(SoftKeymasterTest, OperationsEndWithErrorsAndAreBounded) {
    const Bytes key = newKey();
    const Params header = {bytesParameter(Tag::ASSOCIATED_DATA, bytes("h"))};
    const Result first = client_.begin(KeyPurpose::ENCRYPT, key, kGcm);
    const Result second = client_.begin(KeyPurpose::ENCRYPT, key, kGcm);
    EXPECT_EQ(ErrorCode::TOO_MANY_OPERATIONS, client_.begin(KeyPurpose::ENCRYPT, key, kGcm).error);

    EXPECT_EQ(ErrorCode::OK, client_.update(first.handle, header, {}).error);
    EXPECT_EQ(ErrorCode::OK, client_.update(first.handle, header, {1}).error);
    EXPECT_EQ(ErrorCode::INVALID_TAG, client_.update(first.handle, header, {}).error);
    EXPECT_EQ(ErrorCode::INVALID_OPERATION_HANDLE, client_.update(first.handle, {}, {1}).error);

    EXPECT_EQ(ErrorCode::OK, client_.finish(second.handle, {}).error);
    EXPECT_EQ(ErrorCode::INVALID_OPERATION_HANDLE, client_.finish(second.handle, {}).error);

    const Params nonce = {bytesParameter(Tag::NONCE, Bytes(12))};
    const Result third = client_.begin(KeyPurpose::DECRYPT, key, with(kGcm, nonce));
    EXPECT_EQ(ErrorCode::INVALID_INPUT_LENGTH, client_.finish(third.handle, Bytes(15)).error);
    EXPECT_EQ(ErrorCode::INVALID_OPERATION_HANDLE, ErrorCode(km_.abort(third.handle)));
}

TEST_F(SoftKeymasterTest, ChangedBlobsAreRefused) {
    for (const Params& params : {kAesKey, kEcKey}) {
        const Bytes key = newKey(params);
        for (size_t i = 0; i < key.size(); ++i) {
            Bytes damaged = key;
            damaged[i] ^= 0x80;
            ASSERT_EQ(ErrorCode::INVALID_KEY_BLOB, client_.check(damaged)) << i;
            ASSERT_EQ(ErrorCode::INVALID_KEY_BLOB,
                      client_.check(Bytes(key.begin(), key.begin() + long(i))));
        }
        EXPECT_EQ(ErrorCode::OK, ErrorCode(km_.deleteKey(key)));
    }
    SoftKeymaster::Options elsewhere = options();
    elsewhere.root_key_path = "other";
    SoftKeymaster other(elsewhere);
    EXPECT_EQ(ErrorCode::INVALID_KEY_BLOB, Client{other}.check(newKey()));
}

TEST_F(SoftKeymasterTest, PatchLevelsDecideWhoMayUseAKey) {
    const Bytes old_key = newKey();
    const Result sealed = client_.run(KeyPurpose::ENCRYPT, old_key, kGcm, bytes("text"));
    EXPECT_EQ(ErrorCode::OK, client_.upgrade(old_key).error);
    EXPECT_TRUE(client_.upgrade(old_key).output.empty());

    km_.setPatchLevel(kPatchLevel + 1);
    EXPECT_EQ(ErrorCode::KEY_REQUIRES_UPGRADE, client_.check(old_key));
    EXPECT_EQ(ErrorCode::KEY_REQUIRES_UPGRADE,
              client_.begin(KeyPurpose::ENCRYPT, old_key, kGcm).error);
    EXPECT_EQ(ErrorCode::OK, ErrorCode(km_.deleteKey(old_key)));
    const Bytes new_key = client_.upgrade(old_key).output;
    EXPECT_EQ(ErrorCode::OK, client_.check(new_key));
    EXPECT_EQ(
        bytes("text"),
        client_.run(KeyPurpose::DECRYPT, new_key, with(kGcm, sealed.params), sealed.output).output);

    km_.setPatchLevel(kPatchLevel);
    EXPECT_EQ(ErrorCode::INVALID_ARGUMENT, client_.upgrade(new_key).error);
    EXPECT_EQ(ErrorCode::INVALID_KEY_BLOB, client_.check(new_key));
}

TEST_F(SoftKeymasterTest, DamagedFilesAreReportedAndTriedAgain) {
    test::writeFile("root", bytes("short"));
    EXPECT_EQ(ErrorCode::KEYMASTER_NOT_CONFIGURED, client_.generate(kAesKey).error);
    std::filesystem::remove("root");
    const Bytes key = newKey(kEcKey);

    const Params request = {bytesParameter(Tag::ATTESTATION_CHALLENGE, {1}),
                            bytesParameter(Tag::ATTESTATION_APPLICATION_ID, {1})};
    test::writeFile("root.attest", bytes("no PEM"));
    EXPECT_EQ(ErrorCode::KEYMASTER_NOT_CONFIGURED, client_.attest(key, request).error);
    EXPECT_EQ(0u, ERR_peek_error());  // the caller's queue is not the keymaster's
    std::filesystem::remove("root.attest");
    EXPECT_EQ(ErrorCode::OK, client_.attest(key, request).error);
}

using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using PublicKey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

bool signedBy(X509* certificate, X509* issuer) {
    const PublicKey key(X509_get_pubkey(issuer), EVP_PKEY_free);
    return X509_verify(certificate, key.get()) == 1;
}

Certificate parse(const Bytes& der) {
    const uint8_t* in = der.data();
    return Certificate(d2i_X509(nullptr, &in, static_cast<long>(der.size())), X509_free);
}

// The content of the attestation extension, in hexadecimal; empty when there is none.
std::string attestationExtension(X509* leaf) {
    const std::unique_ptr<ASN1_OBJECT, decltype(&ASN1_OBJECT_free)> oid(
        OBJ_txt2obj("1.3.6.1.4.1.11129.2.1.17", 1), ASN1_OBJECT_free);
    X509_EXTENSION* const found = X509_get_ext(leaf, X509_get_ext_by_OBJ(leaf, oid.get(), -1));
    std::string hex;
    if (found != nullptr) {
        const ASN1_OCTET_STRING* const value = X509_EXTENSION_get_data(found);
        for (int i = 0; i < ASN1_STRING_length(value); ++i) {
            const uint8_t byte = ASN1_STRING_get0_data(value)[i];
            hex += "0123456789abcdef"[byte >> 4];
            hex += "0123456789abcdef"[byte & 15];
        }
    }
    return hex;
}

TEST_F(SoftKeymasterTest, AttestsKeysWithAChain) {
    const KeyParameter challenge = bytesParameter(Tag::ATTESTATION_CHALLENGE, bytes("challenge"));
    const KeyParameter app_id = bytesParameter(Tag::ATTESTATION_APPLICATION_ID, Bytes(1, 'a'));
    std::vector<Bytes> root;
    for (const Params& params : {kEcKey, kRsaKey}) {
        const Bytes key = newKey(params);
        EXPECT_EQ(ErrorCode::ATTESTATION_CHALLENGE_MISSING, client_.attest(key, {app_id}).error);
        EXPECT_EQ(ErrorCode::ATTESTATION_APPLICATION_ID_MISSING,
                  client_.attest(key, {challenge}).error);
        const std::vector<Bytes> chain = client_.attest(key, {challenge, app_id}).chain;
        ASSERT_EQ(3u, chain.size());
        std::vector<Certificate> certificates;
        for (const Bytes& der : chain) {
            certificates.push_back(parse(der));
            ASSERT_NE(nullptr, certificates.back());
        }
        EXPECT_TRUE(signedBy(certificates[0].get(), certificates[1].get()));
        EXPECT_TRUE(signedBy(certificates[1].get(), certificates[2].get()));
        EXPECT_TRUE(signedBy(certificates[2].get(), certificates[2].get()));
        EXPECT_EQ(1, X509_check_ca(certificates[1].get()));
        EXPECT_EQ(1, X509_check_ca(certificates[2].get()));
        root.push_back(chain[2]);
    }
    EXPECT_EQ(root[0], root[1]);
    EXPECT_EQ(ErrorCode::UNSUPPORTED_ALGORITHM,
              client_.attest(newKey(), {challenge, app_id}).error);
}

TEST_F(SoftKeymasterTest, DescribesAttestedKeysInDer) {
    // Values out of order, and one whose top bit is set.
    const Bytes key =
        newKey({choice(Tag::PURPOSE, KeyPurpose::VERIFY), choice(Tag::PURPOSE, KeyPurpose::SIGN),
                choice(Tag::EC_CURVE, EcCurve::P_256), number(Tag::NO_AUTH_REQUIRED, 1),
                number(Tag::CREATION_DATETIME, 0x80), choice(Tag::ALGORITHM, Algorithm::EC)});
    const Result result =
        client_.attest(key, {bytesParameter(Tag::ATTESTATION_CHALLENGE, bytes("challenge")),
                             bytesParameter(Tag::ATTESTATION_APPLICATION_ID, Bytes(130, 0xAA))});
    ASSERT_EQ(3u, result.chain.size());
    // clang-format off
    std::string expected =
        "3081e0"
        "020103" "0a0100" "020104" "0a0100"   // version 3, software; keymaster 4, software
        "04096368616c6c656e6765" "0400"       // challenge; no unique id
        "3081c2"                              // software enforced
        "a1083106" "020102" "020103"          //   purposes
        "a203" "020103" "a304" "02020100"     //   algorithm, key size
        "aa03" "020101" "bf837702" "0500"     //   curve, no authentication
        "bf853d04" "02020080"                 //   creation
        "bf853e03" "020100"                   //   origin
        "bf854205" "0203031769"               //   patch level
        "bf85458185" "048182";                //   application id
    // clang-format on
    for (int i = 0; i < 130; ++i) {
        expected += "aa";
    }
    EXPECT_EQ(expected + "3000", attestationExtension(parse(result.chain[0]).get()));
}

TEST_F(SoftKeymasterTest, MakesCertificateRequests) {
    const KeyParameter csr = number(static_cast<Tag>(0x70000899), 1);
    for (const Params& params : {kEcKey, kRsaKey}) {
        const std::vector<Bytes> answer = client_.attest(newKey(params), {csr}).chain;
        ASSERT_EQ(1u, answer.size());
        const uint8_t* in = answer[0].data();
        const std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)> request(
            d2i_X509_REQ(nullptr, &in, long(answer[0].size())), X509_REQ_free);
        ASSERT_NE(nullptr, request);
        const PublicKey key(X509_REQ_get_pubkey(request.get()), EVP_PKEY_free);
        EXPECT_EQ(1, X509_REQ_verify(request.get(), key.get()));
    }
}

TEST_F(SoftKeymasterTest, PasswordConversionComesBackOnlyUnchanged) {
    const auto kConvert = static_cast<KeyPurpose>(101);
    const auto kRevert = static_cast<KeyPurpose>(102);
    const auto tag = [](uint32_t number) { return static_cast<Tag>(0x90000900 + number); };
    const Bytes material(1000, 'm');
    Params inputs;
    for (uint32_t i = 7; i <= 10; ++i) {
        inputs.push_back(bytesParameter(tag(i), Bytes(3000, uint8_t(i))));
    }
    const Params request = with(inputs, {bytesParameter(tag(11), material)});
    const Result out = client_.begin(kConvert, {}, request);
    ASSERT_EQ(ErrorCode::OK, out.error);
    ASSERT_EQ(3u, out.params.size());  // key, tag, rot
    EXPECT_EQ(material.size(), out.params[0].blob.size());
    EXPECT_NE(material, Bytes(out.params[0].blob));
    EXPECT_EQ(kTagSize, out.params[1].blob.size());
    EXPECT_EQ(16u, out.params[2].blob.size());

    const Params sent = with(inputs, {out.params[0], out.params[1]});
    SoftKeymaster other(options());
    const Result back = Client{other}.begin(kRevert, {}, sent);
    ASSERT_EQ(ErrorCode::OK, back.error);
    ASSERT_EQ(2u, back.params.size());
    EXPECT_EQ(material, Bytes(back.params[0].blob));
    EXPECT_EQ(out.params[2].blob, back.params[1].blob);

    for (size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE(i);
        Params changed = sent;
        changed[i].blob[changed[i].blob.size() - 1] ^= 1;
        const Result refused = client_.begin(kRevert, {}, changed);
        EXPECT_EQ(ErrorCode::VERIFICATION_FAILED, refused.error);
        EXPECT_TRUE(refused.params.empty());
        EXPECT_EQ(ErrorCode::INVALID_ARGUMENT,
                  client_.begin(kRevert, {}, without(sent, sent[i].tag)).error);
    }
    // Bytes that move from one input to the next count as a change.
    Params moved = sent;
    moved[0].blob.resize(2999);
    moved[1].blob = Bytes(3001, 8);
    moved[1].blob[0] = 7;
    EXPECT_EQ(ErrorCode::VERIFICATION_FAILED, client_.begin(kRevert, {}, moved).error);
}

TEST_F(SoftKeymasterTest, FaultsHitTheCallThatTheyArePlannedFor) {
    FaultKeymaster faulty(km_);
    Client client{faulty};
    const Bytes key = client.generate(kAesKey).output;
    const auto begin = [&] { return client.begin(KeyPurpose::ENCRYPT, key, kGcm); };
    const uint64_t handle = begin().handle;
    faulty.plan(Call::kBegin, 1, Fault::nonceSize(0));
    faulty.plan(Call::kBegin, 2, Fault::nonceSize(13));
    faulty.plan(Call::kBegin, 3, Fault::error(ErrorCode::INVALID_KEY_BLOB));
    const Result no_nonce = begin();
    EXPECT_EQ(ErrorCode::OK, no_nonce.error);
    EXPECT_TRUE(no_nonce.params.empty());
    EXPECT_EQ(ErrorCode::OK, ErrorCode(faulty.abort(no_nonce.handle)));
    EXPECT_EQ(13u, begin().params.at(0).blob.size());
    EXPECT_EQ(ErrorCode::INVALID_KEY_BLOB, begin().error);

    faulty.plan(Call::kUpdate, 1, Fault::noCallback());
    faulty.plan(Call::kUpdate, 2, Fault::transportBeforeCallback());
    faulty.plan(Call::kUpdate, 3, Fault::outputSize(5));
    faulty.plan(Call::kFinish, 1, Fault::transportAfterCallback());
    const auto update = [&] { return client.update(handle, {}, {1, 2, 3}); };
    const Result silent = update();
    EXPECT_TRUE(silent.transport);
    EXPECT_EQ(ErrorCode::VERSION_MISMATCH, silent.error);
    const Result dead = update();
    EXPECT_FALSE(dead.transport);
    EXPECT_EQ(ErrorCode::VERSION_MISMATCH, dead.error);
    EXPECT_EQ(5u, update().output.size());
    EXPECT_EQ(3u, update().output.size());
    const Result lost = client.finish(handle, {4});
    EXPECT_FALSE(lost.transport);
    EXPECT_EQ(ErrorCode::OK, lost.error);
    EXPECT_EQ(1 + kTagSize, lost.output.size());

    const auto updates = faulty.calls(Call::kUpdate);
    ASSERT_EQ(4u, updates.size());
    EXPECT_EQ(handle, updates[0].handle);
    EXPECT_EQ((Bytes{1, 2, 3}), Bytes(updates[0].input));
    EXPECT_STREQ("generateKey", soft_keymaster::callName(faulty.calls().front().call));
    EXPECT_EQ(test::described(kAesKey), test::described(faulty.calls().front().params));
}

}  // namespace
