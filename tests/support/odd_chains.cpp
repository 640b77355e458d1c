// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each odd chain as a change of a good one: of a single certificate, or of the whole path.

#include "odd_chains.h"

#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/x509v3.h>

namespace test {
namespace {

using Bytes = std::vector<uint8_t>;
using Path = std::vector<Certificate>;

constexpr const char* kPlaces[] = {"leaf", "intermediate", "root"};

int addKey(EVP_PKEY* key) {
    EXPECT_NE(nullptr, key);
    const int number = 100 + static_cast<int>(keys().size());
    keys()[number] = zelkm::EvpPkeyPtr(key);
    return number;
}

int dsaKey() {
    EVP_PKEY* params = nullptr;
    EVP_PKEY* key = nullptr;
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_DSA, nullptr);
    EVP_PKEY_paramgen_init(context);
    EVP_PKEY_CTX_set_dsa_paramgen_bits(context, 1024);
    EVP_PKEY_paramgen(context, &params);
    EVP_PKEY_CTX_free(context);
    context = EVP_PKEY_CTX_new(params, nullptr);
    EVP_PKEY_keygen_init(context);
    EVP_PKEY_keygen(context, &key);
    EVP_PKEY_CTX_free(context);
    EVP_PKEY_free(params);
    return addKey(key);
}

// A good chain whose certificates all have keys of this kind.
Path ofKey(int key, const EVP_MD* digest) {
    Path path = certificates(3);
    for (Certificate& certificate : path) {
        certificate.key = certificate.signer = key;
        certificate.sign = [digest](X509* x, EVP_PKEY* with) {
            EXPECT_NE(0, X509_sign(x, with, digest));
        };
    }
    return path;
}

// The path with another object identifier for the algorithm of its signatures.
Path named(Path path, const EVP_MD* digest, int nid, int parameters) {
    for (Certificate& certificate : path) {
        certificate.sign = [=](X509* x, EVP_PKEY* with) {
            const ASN1_BIT_STRING* signature = nullptr;
            const X509_ALGOR* algorithm = nullptr;
            X509_get0_signature(&signature, &algorithm, x);
            for (const X509_ALGOR* each : {algorithm, X509_get0_tbs_sigalg(x)}) {
                X509_ALGOR_set0(const_cast<X509_ALGOR*>(each), OBJ_nid2obj(nid), parameters,
                                nullptr);
            }
            unsigned char* to_sign = nullptr;
            const int len = i2d_re_X509_tbs(x, &to_sign);
            EVP_MD_CTX* context = EVP_MD_CTX_new();
            size_t signature_len = 0;
            EXPECT_EQ(1, EVP_DigestSignInit(context, nullptr, digest, nullptr, with));
            EVP_DigestSign(context, nullptr, &signature_len, to_sign, size_t(len));
            Bytes bytes(signature_len);
            EXPECT_EQ(1,
                      EVP_DigestSign(context, bytes.data(), &signature_len, to_sign, size_t(len)));
            EVP_MD_CTX_free(context);
            OPENSSL_free(to_sign);
            ASN1_BIT_STRING* target = const_cast<ASN1_BIT_STRING*>(signature);
            ASN1_BIT_STRING_set(target, bytes.data(), int(signature_len));
            target->flags = (target->flags & ~0x07L) | ASN1_STRING_FLAG_BITS_LEFT;
        };
    }
    return path;
}

void addExtension(X509* x, const char* oid, bool critical, const Bytes& der) {
    ASN1_OCTET_STRING* value = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(value, der.data(), int(der.size()));
    ASN1_OBJECT* object = OBJ_txt2obj(oid, 1);
    X509_EXTENSION* extension = X509_EXTENSION_create_by_OBJ(nullptr, object, critical, value);
    X509_add_ext(x, extension, -1);
    X509_EXTENSION_free(extension);
    ASN1_OBJECT_free(object);
    ASN1_OCTET_STRING_free(value);
}

void removeExtensions(X509* x) {
    while (X509_get_ext_count(x) > 0) {
        X509_EXTENSION_free(X509_delete_ext(x, 0));
    }
}

// Moves the point of the certificate's key off its curve.
void leaveCurve(X509* x) {
    const unsigned char* point = nullptr;
    int len = 0;
    X509_PUBKEY_get0_param(nullptr, &point, &len, nullptr, X509_get_X509_PUBKEY(x));
    const_cast<unsigned char*>(point)[len - 1] ^= 1;
}

// A change of one certificate, which is tried in each place.
struct Change {
    const char* name;
    std::function<void(Certificate&)> make;
};

Change signedChange(const char* name, std::function<void(X509*)> change) {
    return {name, [change](Certificate& c) { c.change = change; }};
}

Change extended(const char* name, const char* oid, bool critical, const Bytes& der) {
    return signedChange(name, [=](X509* x) { addExtension(x, oid, critical, der); });
}

const Change kChanges[] = {
    signedChange("v1", [](X509* x) { X509_set_version(x, 0), removeExtensions(x); }),
    signedChange("v1_with_extensions", [](X509* x) { X509_set_version(x, 0); }),
    signedChange("v2_with_extensions", [](X509* x) { X509_set_version(x, 1); }),
    signedChange("v4", [](X509* x) { X509_set_version(x, 3); }),
    signedChange("no_basic_constraints", removeExtensions),
    signedChange("not_a_ca", [](X509* x) { Certificate::setBasicConstraints(x, false); }),
    extended("unknown_extension", "1.3.6.1.4.1.99999.1", false, {5, 0}),
    extended("unknown_critical_extension", "1.3.6.1.4.1.99999.1", true, {5, 0}),
    extended("no_certificate_signing", "2.5.29.15", true, {3, 2, 7, 0x80}),
    extended("extension_twice", "2.5.29.19", true, {0x30, 3, 1, 1, 0xFF}),
    extended("malformed_key_usage", "2.5.29.15", false, {4, 1, 0}),
    extended("foreign_authority_key_id", "2.5.29.35", false, {0x30, 3, 0x80, 1, 7}),
    signedChange("negative_serial",
                 [](X509* x) { ASN1_INTEGER_set(X509_get_serialNumber(x), -5); }),
    signedChange("generalized_time_before_2050",
                 [](X509* x) {
                     ASN1_GENERALIZEDTIME_set_string(X509_getm_notBefore(x), "20000101000000Z");
                     X509_getm_notBefore(x)->type = V_ASN1_GENERALIZEDTIME;
                 }),
    signedChange("no_seconds",
                 [](X509* x) { ASN1_STRING_set(X509_getm_notBefore(x), "0001010000Z", -1); }),
    signedChange("time_with_offset",
                 [](X509* x) { ASN1_STRING_set(X509_getm_notBefore(x), "000101000000+0100", -1); }),
    signedChange("key_off_its_curve", leaveCurve),
    {"long_form_of_length",
     [](Certificate& c) {
         c.edit = [](Bytes& der) {  // 30 82 xx xx
             der[1] = 0x83;
             der.insert(der.begin() + 2, 0);
         };
     }},
    {"indefinite_length",
     [](Certificate& c) {
         c.edit = [](Bytes& der) {
             der.erase(der.begin() + 2, der.begin() + 4);
             der[1] = 0x80;
             der.insert(der.end(), {0, 0});
         };
     }},
};

// A change of a whole path.
struct PathChange {
    const char* name;
    Path path;
};

std::vector<PathChange> pathChanges() {
    const auto ec = [](const char* curve) {
        return addKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve));
    };
    const auto rsa = [](size_t bits) {
        return addKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits));
    };
    const int rsa_key = rsa(2048);
    const int dsa_key = dsaKey();
    std::vector<PathChange> all = {
        {"good", certificates(3)},
        {"p224", ofKey(ec("P-224"), EVP_sha256())},
        {"p384", ofKey(ec("P-384"), EVP_sha384())},
        {"p521", ofKey(ec("P-521"), EVP_sha512())},
        {"secp256k1", ofKey(ec("secp256k1"), EVP_sha256())},
        {"brainpool", ofKey(ec("brainpoolP256r1"), EVP_sha256())},
        {"ed25519", ofKey(addKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")), nullptr)},
        {"ed448", ofKey(addKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED448")), nullptr)},
        {"dsa_sha1", ofKey(dsa_key, EVP_sha1())},
        {"dsa_sha256", ofKey(dsa_key, EVP_sha256())},
        {"dsa_sha1_old_oid",
         named(ofKey(dsa_key, nullptr), EVP_sha1(), NID_dsaWithSHA1_2, V_ASN1_UNDEF)},
        {"ecdsa_sha1", ofKey(0, EVP_sha1())},
        {"ecdsa_null_parameters",
         named(ofKey(0, nullptr), EVP_sha256(), NID_ecdsa_with_SHA256, V_ASN1_NULL)},
        {"rsa1024", ofKey(rsa(1024), EVP_sha256())},
        {"rsa_md5", ofKey(rsa_key, EVP_md5())},
        {"rsa_sha1", ofKey(rsa_key, EVP_sha1())},
        {"rsa_sha1_old_oid",
         named(ofKey(rsa_key, nullptr), EVP_sha1(), NID_sha1WithRSA, V_ASN1_NULL)},
        {"rsa_ripemd160", ofKey(rsa_key, EVP_ripemd160())},
        {"rsa_sha224", ofKey(rsa_key, EVP_sha224())},
        {"rsa_sha256", ofKey(rsa_key, EVP_sha256())},
        {"rsa_sha512", ofKey(rsa_key, EVP_sha512())},
        {"rsa_sha3", ofKey(rsa_key, EVP_sha3_256())},
        {"rsa_no_parameters",
         named(ofKey(rsa_key, nullptr), EVP_sha256(), NID_sha256WithRSAEncryption, V_ASN1_UNDEF)},
    };
    Path pss = ofKey(rsa_key, nullptr);
    for (Certificate& certificate : pss) {
        certificate.sign = [](X509* x, EVP_PKEY* with) {
            EVP_MD_CTX* context = EVP_MD_CTX_new();
            EVP_PKEY_CTX* key = nullptr;
            EVP_DigestSignInit(context, &key, EVP_sha256(), nullptr, with);
            EVP_PKEY_CTX_set_rsa_padding(key, RSA_PKCS1_PSS_PADDING);
            EVP_PKEY_CTX_set_rsa_pss_saltlen(key, 32);
            EXPECT_NE(0, X509_sign_ctx(x, context));
            EVP_MD_CTX_free(context);
        };
    }
    all.push_back({"rsa_pss", pss});

    Path path = certificates(3);
    path[0].issuer = "C1";
    all.push_back({"issuer_in_another_case", path});
    path = certificates(4);
    std::swap(path[1], path[2]);
    all.push_back({"shuffled", path});
    path = certificates(3);
    path.insert(path.begin() + 1, certificates(1, 5)[0]);
    all.push_back({"with_a_stranger", path});
    path = certificates(4);
    path.pop_back();
    all.push_back({"root_not_self_signed", path});
    path = certificates(4);
    path[3].change = [](X509* x) {
        removeExtensions(x);
        addExtension(x, "2.5.29.19", true, {0x30, 6, 1, 1, 0xFF, 2, 1, 0});
    };
    all.push_back({"longer_than_the_root_allows", path});
    return all;
}

}  // namespace

std::vector<std::pair<std::string, Chain>> oddChains() {
    std::vector<std::pair<std::string, Chain>> result;
    for (const PathChange& change : pathChanges()) {
        result.emplace_back(change.name, encoded(change.path));
    }
    const Chain good = result[0].second;
    for (const Change& change : kChanges) {
        for (size_t place = 0; place < 3; ++place) {
            Certificate changed = certificates(3)[place];
            change.make(changed);
            Chain chain = good;
            chain[place] = changed.der();
            result.emplace_back(std::string(change.name) + "/" + kPlaces[place], chain);
        }
    }
    return result;
}

}  // namespace test
