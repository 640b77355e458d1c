// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "attestation.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "key_generation.h"
#include "root_key.h"

namespace soft_keymaster {

namespace {

using OctetStringPtr = SslPtr<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using ExtensionPtr = SslPtr<X509_EXTENSION, X509_EXTENSION_free>;
using NamePtr = SslPtr<X509_NAME, X509_NAME_free>;
using ObjectPtr = SslPtr<ASN1_OBJECT, ASN1_OBJECT_free>;
using RequestPtr = SslPtr<X509_REQ, X509_REQ_free>;

constexpr char kRootName[] = "Software keymaster attestation root (protects nothing)";
constexpr char kIssuerName[] = "Software keymaster attestation issuer (protects nothing)";
constexpr char kKeyName[] = "Software keymaster key";

constexpr char kAttestationOid[] = "1.3.6.1.4.1.11129.2.1.17";
constexpr long kDaySeconds = 24L * 60 * 60;
constexpr long kLifetimeSeconds = 20 * 365 * kDaySeconds;

NamePtr makeName(const char* common_name) {
    NamePtr name(X509_NAME_new());
    requireSsl(name != nullptr &&
               X509_NAME_add_entry_by_txt(name.get(), "CN", MBSTRING_ASC,
                                          reinterpret_cast<const uint8_t*>(common_name), -1, -1,
                                          0) == 1);
    return name;
}

void addExtension(X509* certificate, X509_EXTENSION* made) {
    const ExtensionPtr extension(made);
    requireSsl(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1);
}

// Adds an extension that libcrypto makes of this text.
void addExtension(X509* certificate, const X509* issuer, int nid, const char* text) {
    X509V3_CTX context = {};
    X509V3_set_ctx(&context, const_cast<X509*>(issuer), certificate, nullptr, nullptr, 0);
    addExtension(certificate, X509V3_EXT_nconf_nid(nullptr, &context, nid, text));
}

// A certificate without a signature, valid from yesterday on. Without an `issuer` it is its own
// issuer.
X509Ptr startCertificate(const char* subject, EVP_PKEY* public_key, const X509* issuer) {
    uint64_t serial = 0;
    requireSsl(RAND_bytes(reinterpret_cast<uint8_t*>(&serial), sizeof(serial)) == 1);
    X509Ptr certificate(X509_new());
    X509* const x509 = certificate.get();
    requireSsl(x509 != nullptr && X509_set_version(x509, 2) == 1 /* version 3 */ &&
               ASN1_INTEGER_set_uint64(X509_get_serialNumber(x509), serial | 1) == 1 &&
               X509_gmtime_adj(X509_getm_notBefore(x509), -kDaySeconds) != nullptr &&
               X509_gmtime_adj(X509_getm_notAfter(x509), kLifetimeSeconds) != nullptr &&
               X509_set_subject_name(x509, makeName(subject).get()) == 1 &&
               X509_set_pubkey(x509, public_key) == 1);
    X509_NAME* const issuer_name = X509_get_subject_name(issuer == nullptr ? x509 : issuer);
    requireSsl(X509_set_issuer_name(x509, issuer_name) == 1);
    addExtension(x509, issuer, NID_subject_key_identifier, "hash");
    if (issuer != nullptr) {
        addExtension(x509, issuer, NID_authority_key_identifier, "keyid");
    }
    return certificate;
}

void sign(X509* certificate, EVP_PKEY* key) {
    requireSsl(X509_sign(certificate, key, EVP_sha256()) > 0);
}

X509Ptr makeAuthority(const char* subject, EVP_PKEY* public_key, const X509* issuer,
                      EVP_PKEY* issuer_key) {
    X509Ptr certificate = startCertificate(subject, public_key, issuer);
    addExtension(certificate.get(), issuer, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate.get(), issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    sign(certificate.get(), issuer_key);
    return certificate;
}

Bytes makeAuthorityFile() {
    const PkeyPtr root_key = makeEcKeyPair();
    const PkeyPtr issuer_key = makeEcKeyPair();
    const X509Ptr root = makeAuthority(kRootName, root_key.get(), nullptr, root_key.get());
    const X509Ptr issuer = makeAuthority(kIssuerName, issuer_key.get(), root.get(), root_key.get());
    const BioPtr file(BIO_new(BIO_s_mem()));
    requireSsl(file != nullptr &&
               PEM_write_bio_PrivateKey(file.get(), issuer_key.get(), nullptr, nullptr, 0, nullptr,
                                        nullptr) == 1 &&
               PEM_write_bio_X509(file.get(), issuer.get()) == 1 &&
               PEM_write_bio_X509(file.get(), root.get()) == 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(file.get(), &text);
    return Bytes(text, text + size);
}

}  // namespace

AttestationAuthority::AttestationAuthority(const std::string& path) {
    const Bytes pem = loadOrCreateFile(path, makeAuthorityFile);
    const BioPtr file(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    requireSsl(file != nullptr);
    issuer_key_.reset(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    issuer_.reset(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
    root_.reset(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
    require(issuer_key_ != nullptr && issuer_ != nullptr && root_ != nullptr,
            ErrorCode::KEYMASTER_NOT_CONFIGURED);
}

std::vector<hidl_vec<uint8_t>> AttestationAuthority::certify(EVP_PKEY* key,
                                                             const Bytes& key_description) const {
    const X509Ptr leaf = startCertificate(kKeyName, key, issuer_.get());
    addExtension(leaf.get(), issuer_.get(), NID_key_usage, "critical,digitalSignature");
    const ObjectPtr oid(OBJ_txt2obj(kAttestationOid, 1));
    const OctetStringPtr description(ASN1_OCTET_STRING_new());
    requireSsl(oid != nullptr && description != nullptr &&
               ASN1_OCTET_STRING_set(description.get(), key_description.data(),
                                     static_cast<int>(key_description.size())) == 1);
    addExtension(leaf.get(),
                 X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), 0, description.get()));
    sign(leaf.get(), issuer_key_.get());
    return {toDer(leaf.get(), i2d_X509), toDer(issuer_.get(), i2d_X509),
            toDer(root_.get(), i2d_X509)};
}

Bytes makeCertificateRequest(EVP_PKEY* key) {
    const RequestPtr request(X509_REQ_new());
    requireSsl(request != nullptr && X509_REQ_set_version(request.get(), 0) == 1 /* version 1 */ &&
               X509_REQ_set_subject_name(request.get(), makeName(kKeyName).get()) == 1 &&
               X509_REQ_set_pubkey(request.get(), key) == 1 &&
               X509_REQ_sign(request.get(), key, EVP_sha256()) > 0);
    return toDer(request.get(), i2d_X509_REQ);
}

}  // namespace soft_keymaster
