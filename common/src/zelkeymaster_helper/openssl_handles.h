// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Owners of libcrypto's objects, for OpenSSL and BoringSSL.

#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace zelkm {

template <auto Free>
struct OpenSslDeleter {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

struct X509StackDeleter {
    void operator()(STACK_OF(X509) * stack) const { sk_X509_pop_free(stack, X509_free); }
};

using X509Ptr = std::unique_ptr<X509, OpenSslDeleter<X509_free>>;
using X509StackPtr = std::unique_ptr<STACK_OF(X509), X509StackDeleter>;  // owns its elements
using X509StorePtr = std::unique_ptr<X509_STORE, OpenSslDeleter<X509_STORE_free>>;
using X509StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, OpenSslDeleter<X509_STORE_CTX_free>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY_free>>;

}  // namespace zelkm
