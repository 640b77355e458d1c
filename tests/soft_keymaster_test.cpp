// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The software keymaster, through the platform's interface alone.

#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>

#include "../soft_keymaster/src/root_key.h"
#include "keymaster_calls.h"
#include "openssl_handles.h"

namespace {

using namespace soft_keymaster;
using namespace test;

// Runs a whole operation, with as many updates as it takes.
Result run(Keymaster& km, KeyPurpose purpose, const Bytes& blob, const Params& params, Bytes input,
           const Bytes& associated_data = bytes("header")) {
    Result result = begin(km, purpose, blob, params);
    Params first = {param(Tag::ASSOCIATED_DATA, associated_data)};
    for (; !input.empty(); first.clear()) {
        const Result part = update(km, result.handle, first, input);
        if (part.consumed == 0) {
            return part;
        }
        input.erase(input.begin(), input.begin() + part.consumed);
        result.output.insert(result.output.end(), part.output.begin(), part.output.end());
    }
    const Result last = finish(km, result.handle);
    if (last.error != Error::OK) {
        return last;
    }
    result.output.insert(result.output.end(), last.output.begin(), last.output.end());
    return result;
}

SoftKeymaster::Options options(size_t max_update_bytes = 0, const char* root_key = "root") {
    return {root_key, kPatchLevel, max_update_bytes, 2};
}

class SoftKeymasterTest : public test::InTempDir {
  protected:
    Bytes newKey(const Params& params = kAesKey) { return generate(km_, params).output; }

    SoftKeymaster km_{options()};
};

TEST_F(SoftKeymasterTest, WhatOneInstanceEncryptsAnotherDecrypts) {
    const Bytes key = newKey();
    // Limits that split the tag, the block and everything.
    for (const size_t limit : {size_t{1}, size_t{7}, kTagSize, size_t{33}}) {
        SoftKeymaster other(options(limit));
        const uint64_t handle = begin(other, kEncrypt, key, kGcm).handle;
        EXPECT_EQ(limit, update(other, handle, {}, Bytes(50)).consumed);
        for (const size_t size : {size_t{1}, kTagSize, size_t{100}}) {
            const Bytes plain(size, 'p');
            const Result sealed = run(other, kEncrypt, key, kGcm, plain);
            ASSERT_EQ(size + kTagSize, sealed.output.size());
            ASSERT_EQ(12u, sealed.params.at(0).blob.size());
            const Params params = with(kGcm, sealed.params);
            Bytes input = sealed.output;
            EXPECT_EQ(plain, run(km_, kDecrypt, key, params, input).output);
            EXPECT_EQ(plain, run(other, kDecrypt, key, params, input).output);
            EXPECT_EQ(Error::VERIFICATION_FAILED, run(km_, kDecrypt, key, params, input, {}).error);
            input[size - 1] ^= 1;
            EXPECT_EQ(Error::VERIFICATION_FAILED, run(other, kDecrypt, key, params, input).error);
        }
    }
}

TEST_F(SoftKeymasterTest, IsTheOnlyKeymasterOfTheHost) {
    const auto first = Keymaster::enumerateAvailableDevices();
    Keymaster::performHmacKeyAgreement(first);
    ASSERT_EQ(1u, first.size());
    EXPECT_EQ(4, first[0]->halVersion().majorVersion);
    const Bytes key = generate(*first[0], kAesKey).output;
    ASSERT_EQ(0, ::setenv(kRootKeyVariable, "soft_keymaster_root.key", 1));
    const auto second = Keymaster::enumerateAvailableDevices();
    ASSERT_EQ(0, ::setenv(kPatchLevelVariable, "202602", 1));
    EXPECT_EQ(Error::KEY_REQUIRES_UPGRADE, check(*Keymaster::enumerateAvailableDevices()[0], key));
    ASSERT_EQ(0, ::unsetenv(kPatchLevelVariable));
    std::filesystem::create_directory("elsewhere");
    std::filesystem::current_path("elsewhere");
    EXPECT_EQ(Error::OK, check(*second[0], key));
    ASSERT_EQ(0, ::setenv(kRootKeyVariable, "other.key", 1));
    EXPECT_EQ(Error::INVALID_KEY_BLOB, check(*Keymaster::enumerateAvailableDevices()[0], key));
    ASSERT_EQ(0, ::unsetenv(kRootKeyVariable));
}

TEST_F(SoftKeymasterTest, ChangedBlobsAreRefused) {
    const Bytes key = newKey();
    for (size_t i = 0; i < key.size(); i += i < 8 ? 1 : 13) {
        Bytes damaged = key;
        damaged[i] ^= 0x80;
        EXPECT_EQ(Error::INVALID_KEY_BLOB, check(km_, damaged)) << "byte " << i;
        damaged.resize(i);
        EXPECT_EQ(Error::INVALID_KEY_BLOB, check(km_, damaged)) << i << " bytes";
    }
    // Another root key does not open them either. One that cannot be read is tried again.
    SoftKeymaster other(options(0, "other"));
    test::writeFile("other", bytes("short"));
    EXPECT_EQ(Error::KEYMASTER_NOT_CONFIGURED, check(other, key));
    std::filesystem::remove("other");
    EXPECT_EQ(Error::INVALID_KEY_BLOB, check(other, key));
}

TEST_F(SoftKeymasterTest, MakesAFileOnceAndForItsOwnerAlone) {
    const auto other_is_first = [] {
        test::writeFile("file", bytes("first"));
        return bytes("second");
    };
    EXPECT_EQ(bytes("first"), loadOrCreateFile("file", other_is_first));
    const auto made = [] { return bytes("made"); };
    EXPECT_EQ(bytes("made"), loadOrCreateFile("new", made));
    EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status("new").permissions());
    EXPECT_EQ(bytes("made"), loadOrCreateFile("", made));
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator("."), {}));
    test::writeFile("large", Bytes(64 * 1024));
    EXPECT_EQ(64u * 1024, loadOrCreateFile("large", made).size());
    test::writeFile("larger", Bytes(64 * 1024 + 1));
    EXPECT_THROW(loadOrCreateFile("larger", made), KeymasterError);
    EXPECT_THROW(loadOrCreateFile(".", made), KeymasterError);
    EXPECT_THROW(loadOrCreateFile("no/folder", made), KeymasterError);
}

TEST_F(SoftKeymasterTest, PatchLevelsDecideWhoMayUseAKey) {
    const Bytes old_key = newKey();
    const Result sealed = run(km_, kEncrypt, old_key, kGcm, bytes("text"));
    EXPECT_EQ(Error::OK, upgrade(km_, old_key).error);
    EXPECT_TRUE(upgrade(km_, old_key).output.empty());

    km_.setPatchLevel(kPatchLevel + 1);
    EXPECT_EQ(Error::KEY_REQUIRES_UPGRADE, begin(km_, kEncrypt, old_key, kGcm).error);
    const Bytes new_key = upgrade(km_, old_key).output;
    EXPECT_NE(new_key, upgrade(km_, old_key).output);  // each blob has a nonce of its own
    const Params params = with(kGcm, sealed.params);
    EXPECT_EQ(bytes("text"), run(km_, kDecrypt, new_key, params, sealed.output).output);

    km_.setPatchLevel(kPatchLevel);
    EXPECT_EQ(Error::INVALID_ARGUMENT, upgrade(km_, new_key).error);
    EXPECT_EQ(Error::INVALID_KEY_BLOB, check(km_, new_key));
}

// BoringSSL has no X509_get0_pubkey().
zelkm::EvpPkeyPtr publicKey(X509* certificate) {
    return zelkm::EvpPkeyPtr(X509_get_pubkey(certificate));
}

TEST_F(SoftKeymasterTest, AttestsKeysWithAChainAndMakesCertificateRequests) {
    const KeyParameter challenge = param(Tag::ATTESTATION_CHALLENGE, bytes("challenge"));
    const KeyParameter app_id = param(Tag::ATTESTATION_APPLICATION_ID, Bytes(128, 0xAA));
    const KeyParameter csr = param(TAG_GENERATE_CSR, 1);
    std::vector<std::vector<hidl_vec<uint8_t>>> chains;
    std::set<uint64_t> serials;
    for (const Params& params : {kEcKey, kRsaKey}) {
        const Bytes key = newKey(params);
        EXPECT_EQ(Error::ATTESTATION_CHALLENGE_MISSING, attest(km_, key, {app_id}).error);
        EXPECT_EQ(Error::ATTESTATION_APPLICATION_ID_MISSING, attest(km_, key, {challenge}).error);
        chains.push_back(attest(km_, key, {challenge, app_id}).chain);
        ASSERT_EQ(3u, chains.back().size());
        std::vector<zelkm::X509Ptr> certificates;
        for (const hidl_vec<uint8_t>& der : chains.back()) {
            const uint8_t* in = der.data();
            certificates.emplace_back(d2i_X509(nullptr, &in, long(der.size())));
        }
        for (size_t i = 0; i < 3; ++i) {  // the last one signed itself
            X509* const issuer = certificates[std::min<size_t>(i + 1, 2)].get();
            EXPECT_EQ(1, X509_verify(certificates[i].get(), publicKey(issuer).get()))
                << "certificate " << i;
            EXPECT_EQ(X509_V_OK, X509_check_issued(issuer, certificates[i].get()));
            EXPECT_EQ(i != 0, X509_check_ca(certificates[i].get()) == 1);
            EXPECT_EQ(-1, X509_cmp_current_time(X509_get0_notBefore(certificates[i].get())));
            EXPECT_EQ(1, X509_cmp_current_time(X509_get0_notAfter(certificates[i].get())));
            EXPECT_EQ(2, X509_get_version(certificates[i].get()));  // version 3
        }
        const Bytes answer = attest(km_, key, {csr}).chain.at(0);
        const uint8_t* in = answer.data();
        const std::unique_ptr<X509_REQ, zelkm::OpenSslDeleter<X509_REQ_free>> request(
            d2i_X509_REQ(nullptr, &in, long(answer.size())));
        EXPECT_EQ(1, X509_REQ_verify(request.get(), publicKey(certificates[0].get()).get()));
        uint64_t serial = 0;  // has the top bit set, which no long takes
        EXPECT_EQ(1,
                  ASN1_INTEGER_get_uint64(&serial, X509_get_serialNumber(certificates[0].get())));
        serials.insert(serial);
    }
    EXPECT_EQ(2u, serials.size());
    EXPECT_EQ(chains[0][2], chains[1][2]);

    // clang-format off
    Bytes expected = {  // the extension
        0x06, 10, 0x2b, 6, 1, 4, 1, 0xd6, 0x79, 2, 1, 17, 0x04, 0x81, 0xea, 0x30, 0x81, 0xe7,
        0x02, 1, 3, 0x0a, 1, 0, 0x02, 1, 4, 0x0a, 1, 0,               // versions, both software
        0x04, 9, 'c', 'h', 'a', 'l', 'l', 'e', 'n', 'g', 'e', 4, 0,   // no unique id
        0x30, 0x81, 0xc9, 0xa1, 8, 0x31, 6, 0x02, 1, 2, 0x02, 1, 3,   // in software: purposes
        0xa2, 3, 0x02, 1, 3, 0xa3, 4, 0x02, 2, 1, 0,                  //   algorithm, key size
        0xaa, 3, 0x02, 1, 1, 0xbf, 0x83, 0x77, 2, 0x05, 0,            //   curve, no authentication
        0xbf, 0x85, 0x3d, 4, 0x02, 2, 0, 0x80, 0xbf, 0x85, 0x3e, 3, 0x02, 1, 0,   //   creation, origin
        0xbf, 0x85, 0x41, 5, 0x02, 3, 1, 0x86, 0xa0,                  //   system version
        0xbf, 0x85, 0x42, 5, 0x02, 3, 3, 0x17, 0x69,                  //   patch level
        0xbf, 0x85, 0x45, 0x81, 0x83, 0x04, 0x81, 128, 0x30, 0};  //   application; hardware
    // clang-format on
    expected.insert(expected.end() - 2, 128, 0xAA);
    const auto holds = [](const Bytes& leaf, const Bytes& part) {
        return std::search(leaf.begin(), leaf.end(), part.begin(), part.end()) != leaf.end();
    };
    EXPECT_TRUE(holds(chains[0][0], expected));
    // Content of 256 bytes and more has two bytes of length.
    const KeyParameter longer = param(Tag::ATTESTATION_APPLICATION_ID, Bytes(300, 0xAA));
    EXPECT_TRUE(holds(attest(km_, newKey(kEcKey), {challenge, longer}).chain.at(0),
                      {0xbf, 0x85, 0x45, 0x82, 1, 0x30, 0x04, 0x82, 1, 0x2c, 0xAA}));
}

TEST_F(SoftKeymasterTest, PasswordConversionComesBackOnlyUnchanged) {
    constexpr auto kConvert = PWHW_PURPOSE_TO_KEY;
    constexpr auto kRevert = PWHW_PURPOSE_TO_ENCRYPTED_KEY;
    const Bytes material(1000, 'm');
    Params inputs;
    for (const Tag tag : {PWHW_TAG_IN_1, PWHW_TAG_IN_2, PWHW_TAG_IN_3, PWHW_TAG_IN_4}) {
        inputs.push_back(param(tag, Bytes(3000, uint8_t(tag))));
    }
    const KeyParameter key = param(PWHW_TAG_ENCRYPTED_KEY, material);
    const Result out = begin(km_, kConvert, {}, with(inputs, {key}));
    EXPECT_NE(material, Bytes(out.params.at(0).blob));

    const Params sent = with(inputs, {out.params[0], out.params[1]});
    SoftKeymaster other(options());
    const Result back = begin(other, kRevert, {}, sent);
    EXPECT_EQ(material, Bytes(back.params.at(0).blob));
    EXPECT_EQ(out.params.at(2).blob, back.params.at(1).blob);

    for (size_t i = 0; i < sent.size(); ++i) {
        Params changed = sent;
        changed[i].blob[changed[i].blob.size() - 1] ^= 1;
        EXPECT_EQ(Error::VERIFICATION_FAILED, begin(km_, kRevert, {}, changed).error)
            << described(sent[i]).substr(0, 20);
        changed.erase(changed.begin() + long(i));
        EXPECT_EQ(Error::INVALID_ARGUMENT, begin(km_, kRevert, {}, changed).error)
            << described(sent[i]).substr(0, 20);
    }
    // Bytes that move from one input to the next count as a change.
    Params moved = sent;
    moved[0].blob.resize(2999);
    moved[1].blob = Bytes(3001, moved[1].blob[0]);
    moved[1].blob[0] = moved[0].blob[0];
    EXPECT_EQ(Error::VERIFICATION_FAILED, begin(km_, kRevert, {}, moved).error);
}

}  // namespace
