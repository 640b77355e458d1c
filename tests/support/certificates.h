// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes certificates for tests, with either flavour of libcrypto. None depends on today's date.

#pragma once

#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "openssl_handles.h"

namespace test {

using Chain = android::hardware::hidl_vec<android::hardware::hidl_vec<uint8_t>>;  // DER

inline constexpr char kLongPast[] = "990101000000Z";  // 1999
inline constexpr char kPast[] = "000101000000Z";
inline constexpr char kNearFuture[] = "99981231235959Z";
inline constexpr char kFuture[] = "99991231235959Z";

inline zelkm::EvpPkeyPtr makeKey(int type) {
    EVP_PKEY* key = nullptr;
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(type, nullptr);
    EVP_PKEY_keygen_init(context);
    if (type == EVP_PKEY_EC) {
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context, NID_X9_62_prime256v1);
    } else {
        EVP_PKEY_CTX_set_rsa_keygen_bits(context, 2048);
    }
    EVP_PKEY_keygen(context, &key);
    EVP_PKEY_CTX_free(context);
    return zelkm::EvpPkeyPtr(key);
}

// The key with this number, made at its first use: 20 is an RSA key, all others lie on P-256.
inline EVP_PKEY* keyOf(int number) {
    static std::map<int, zelkm::EvpPkeyPtr> keys;
    zelkm::EvpPkeyPtr& key = keys[number];
    if (key == nullptr) {
        key = makeKey(number == 20 ? EVP_PKEY_RSA : EVP_PKEY_EC);
    }
    return key.get();
}

struct Certificate {
    std::string subject, issuer;
    int key, signer;
    const char* from = kPast;
    const char* to = kFuture;
    std::function<void(X509*)> change = [](X509*) {};  // runs before it is signed

    android::hardware::hidl_vec<uint8_t> der() const {
        const zelkm::X509Ptr made(X509_new());
        X509* const x = made.get();
        const auto setName = [](X509_NAME* name, const std::string& text) {
            X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                       0);
        };
        X509_set_version(x, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(x), key + 1);
        setName(X509_get_subject_name(x), subject);
        setName(X509_get_issuer_name(x), issuer);
        ASN1_TIME_set_string(X509_getm_notBefore(x), from);
        ASN1_TIME_set_string(X509_getm_notAfter(x), to);
        X509_set_pubkey(x, keyOf(key));
        BASIC_CONSTRAINTS* constraints = BASIC_CONSTRAINTS_new();
        constraints->ca = 0xFF;
        X509_add1_ext_i2d(x, NID_basic_constraints, constraints, 1, X509V3_ADD_REPLACE);
        BASIC_CONSTRAINTS_free(constraints);
        change(x);
        EXPECT_NE(0, X509_sign(x, keyOf(signer), EVP_sha256()));
        std::vector<uint8_t> result(static_cast<size_t>(i2d_X509(x, nullptr)));
        unsigned char* end = result.data();
        EXPECT_EQ(result.size(), size_t(i2d_X509(x, &end)));
        return result;
    }
};

// A good chain, which begins with the leaf: the next certificate signed each one, the last signed
// itself.
inline std::vector<Certificate> certificates(int count, int first_key = 0) {
    std::vector<Certificate> result;
    for (int i = 0; i < count; ++i) {
        const int next = std::min(i + 1, count - 1);
        Certificate certificate;
        certificate.subject = "c" + std::to_string(i);
        certificate.issuer = "c" + std::to_string(next);
        certificate.key = first_key + i;
        certificate.signer = first_key + next;
        result.push_back(std::move(certificate));
    }
    return result;
}

inline Chain encoded(const std::vector<Certificate>& certificates) {
    std::vector<android::hardware::hidl_vec<uint8_t>> result;
    for (const Certificate& certificate : certificates) {
        result.push_back(certificate.der());
    }
    return result;
}

}  // namespace test
