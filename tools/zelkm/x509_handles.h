// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Owners of libcrypto objects.

#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace zelkm_tool {

template <auto kFree>
struct Freer {
    template <typename T>
    void operator()(T* object) const {
        kFree(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Freer<BIO_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Freer<X509_STORE_free>>;
using StoreContextPtr = std::unique_ptr<X509_STORE_CTX, Freer<X509_STORE_CTX_free>>;
using X509Ptr = std::unique_ptr<X509, Freer<X509_free>>;

struct StackFreer {
    void operator()(STACK_OF(X509) * stack) const { sk_X509_pop_free(stack, X509_free); }
};
using StackPtr = std::unique_ptr<STACK_OF(X509), StackFreer>;

// What was written to a BIO in memory.
inline std::string bioText(const BioPtr& bio) {
    char* data = nullptr;
    const long len = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(len));
}

}  // namespace zelkm_tool
