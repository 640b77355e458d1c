// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The checks of an attestation chain. See attest_chain.h.

#include "attest_chain.h"

#include "openssl_handles.h"

namespace zelkm {
namespace {

constexpr size_t kMinChainLen = 3;

// Bytes after the certificate are ignored. An empty element is libcrypto's to refuse, with a
// reason.
X509Ptr parseCertificate(const android::hardware::hidl_vec<uint8_t>& der) {
    const unsigned char* at = der.data();
    return X509Ptr(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

ChainOutcome failed(ChainFailure failure) {
    return {failure, 0, 0};
}

ChainOutcome verifyPath(X509* leaf, STACK_OF(X509) * untrusted, X509* root,
                        X509_STORE_CTX_verify_cb verify_cb) {
    const X509StorePtr store(X509_STORE_new());
    if (store == nullptr) {
        return failed(ChainFailure::kStore);
    }
    X509_STORE_add_cert(store.get(), root);
    const X509StoreCtxPtr context(X509_STORE_CTX_new());
    if (context == nullptr ||
        X509_STORE_CTX_init(context.get(), store.get(), leaf, untrusted) != 1) {
        return failed(ChainFailure::kContext);
    }
    X509_STORE_CTX_set_verify_cb(context.get(), verify_cb);
    const int result = X509_verify_cert(context.get());
    if (result != 1) {
        return {ChainFailure::kVerify, result, X509_STORE_CTX_get_error(context.get())};
    }
    return failed(ChainFailure::kNone);
}

ChainOutcome verifySeparateFirst(const android::hardware::hidl_vec<uint8_t>& der, X509* leaf) {
    const X509Ptr first = parseCertificate(der);
    if (first == nullptr) {
        return failed(ChainFailure::kFirstParse);
    }
    const EvpPkeyPtr key(X509_get_pubkey(leaf));
    if (key == nullptr) {
        return failed(ChainFailure::kLeafKey);
    }
    return failed(X509_verify(first.get(), key.get()) == 1 ? ChainFailure::kNone
                                                           : ChainFailure::kFirstVerify);
}

}  // namespace

ChainOutcome checkChain(const CertificateChain& chain, bool separate_first,
                        X509_STORE_CTX_verify_cb verify_cb) {
    if (chain.size() < kMinChainLen) {
        return failed(ChainFailure::kLength);
    }
    const size_t path_start = separate_first ? 1 : 0;
    const X509Ptr leaf = parseCertificate(chain[path_start]);
    if (leaf == nullptr) {
        return failed(ChainFailure::kLeafParse);
    }
    const X509StackPtr untrusted(sk_X509_new_null());
    if (untrusted == nullptr) {
        return failed(ChainFailure::kStack);
    }
    X509* root = nullptr;  // owned by the stack
    for (size_t i = path_start + 1; i < chain.size(); ++i) {
        X509Ptr certificate = parseCertificate(chain[i]);
        if (certificate == nullptr) {
            return failed(ChainFailure::kParse);
        }
        if (sk_X509_push(untrusted.get(), certificate.get()) == 0) {
            return failed(ChainFailure::kPush);
        }
        root = certificate.release();
    }
    const ChainOutcome path = verifyPath(leaf.get(), untrusted.get(), root, verify_cb);
    if (path.failure != ChainFailure::kNone || !separate_first) {
        return path;
    }
    return verifySeparateFirst(chain[0], leaf.get());
}

}  // namespace zelkm
