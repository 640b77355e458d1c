// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Shared by all files here: owners of OpenSSL's objects, and the one exception. The exception
// carries the error code that the keymaster will return, and never leaves the keymaster.

#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "soft_keymaster/store_keymaster.h"

namespace soft_keymaster {

using Bytes = std::vector<uint8_t>;

inline void append(Bytes& out, const Bytes& more) {
    out.insert(out.end(), more.begin(), more.end());
}

struct KeymasterError {
    ErrorCode code;
};

inline void require(bool condition, ErrorCode code) {
    if (!condition) {
        throw KeymasterError{code};
    }
}

// For OpenSSL calls that fail only because memory ran out, or because of a fault in OpenSSL.
inline void requireSsl(bool condition) {
    require(condition, ErrorCode::UNKNOWN_ERROR);
}

inline Bytes randomBytes(size_t size) {
    Bytes bytes(size);
    requireSsl(RAND_bytes(bytes.data(), static_cast<int>(size)) == 1);
    return bytes;
}

template <auto kFree>
struct SslDeleter {
    template <typename T>
    void operator()(T* object) const {
        kFree(object);
    }
};

template <typename T, auto kFree>
using SslPtr = std::unique_ptr<T, SslDeleter<kFree>>;

using BioPtr = SslPtr<BIO, BIO_free>;
using CipherContextPtr = SslPtr<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using PkeyContextPtr = SslPtr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using PkeyPtr = SslPtr<EVP_PKEY, EVP_PKEY_free>;
using X509Ptr = SslPtr<X509, X509_free>;

// The DER form of `object`, by one of OpenSSL's i2d functions.
template <typename T, typename Encoder>
Bytes toDer(T* object, Encoder encode) {
    const int length = encode(object, nullptr);
    requireSsl(length > 0);
    Bytes der(static_cast<size_t>(length));
    uint8_t* end = der.data();
    requireSsl(encode(object, &end) == length);
    return der;
}

}  // namespace soft_keymaster
