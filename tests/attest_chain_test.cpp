// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Attestation chains made here. Each bad one differs from a good one in one respect.

#include <openssl/err.h>

#include <functional>

#include "certificates.h"
#include "temp_dir.h"
#include "zelkeymaster_operation.h"

namespace {

using android::hardware::hidl_vec;
using namespace test;

// The path behind a separate first certificate, which the path's leaf signed.
std::vector<Certificate> withFirst(std::vector<Certificate> path) {
    Certificate first;
    first.subject = "first";
    first.issuer = "whoever";
    first.key = 10;
    first.signer = path[0].key;
    first.to = kLongPast;
    path.insert(path.begin(), first);
    return path;
}

// Validates a chain while libcrypto's error queue holds an entry of somebody else. It stays there,
// unless the queue is printed. Returns the log without what was printed.
Lines validated(int result, const Chain& chain, bool chain_only, bool printed) {
    ERR_clear_error();
    const unsigned char* at = nullptr;
    const zelkm::X509Ptr nothing(d2i_X509(nullptr, &at, 0));  // leaves an error
    const unsigned long foreign = ERR_peek_last_error();
    EXPECT_NE(0u, foreign);
    test::clearLog();
    EXPECT_EQ(result, ZelKeymasterOperation::validateAttestChain(chain, chain_only));
    EXPECT_EQ(printed ? 0 : foreign, ERR_peek_last_error());
    const Lines all = test::log();
    Lines rest;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i] == "E object: print_openssl_error_cb") {
            // The text with its length and the null context.
            EXPECT_NE(std::string::npos, all.at(++i).rfind(", (nil))"));
        } else {
            rest.push_back(all[i]);
        }
    }
    EXPECT_EQ(printed, rest.size() != all.size());
    return rest;
}

void expectRefused(const Chain& chain, bool chain_only, const Lines& log, bool printed) {
    EXPECT_EQ(log, validated(ZELKM_VERIFICATION_FAILED, chain, chain_only, printed));
}

void expectAccepted(const Chain& chain, bool chain_only) {
    EXPECT_EQ(Lines(), validated(ZELKM_OK, chain, chain_only, false));
}

TEST(AttestationChain, AcceptsAnySelfConsistentChain) {
    expectAccepted(encoded(certificates(3)), true);
    expectAccepted(encoded(certificates(10)), true);
    std::vector<Certificate> rsa = certificates(3);
    rsa[0].signer = rsa[1].key = rsa[1].signer = rsa[2].key = rsa[2].signer = 20;
    expectAccepted(encoded(rsa), true);

    Chain trailing = encoded(certificates(3));
    for (hidl_vec<uint8_t>& element : trailing) {
        element.resize(element.size() + 1);
    }
    expectAccepted(trailing, true);
}

TEST(AttestationChain, AcceptsCertificatesOutsideTheirValidity) {
    for (size_t position = 0; position < 4; ++position) {
        std::vector<Certificate> expired = certificates(3);
        std::vector<Certificate> early = expired;
        for (size_t i = 0; i < 3; ++i) {
            if (position == i || position == 3) {  // at last all of them
                expired[i].from = kLongPast;
                expired[i].to = kPast;
                early[i].from = kNearFuture;
            }
        }
        expectAccepted(encoded(expired), true);
        expectAccepted(encoded(early), true);
    }
}

TEST(AttestationChain, RefusesPathsThatDoNotVerify) {
    const std::pair<int, std::function<void(std::vector<Certificate>&)>> changes[] = {
        {X509_V_ERR_CERT_SIGNATURE_FAILURE, [](auto& path) { path[0].signer = 3; }},
        {X509_V_ERR_CERT_SIGNATURE_FAILURE, [](auto& path) { path[1].signer = 3; }},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
         [](auto& path) { path[2].issuer = "stranger"; }},
        {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT,
         [](auto& path) { path[3].issuer = "stranger", path[3].signer = 9; }}};
    for (const auto& [error, change] : changes) {
        std::vector<Certificate> path = certificates(4);
        change(path);
        const Lines log = {"E object: X509_verify_cert fail 0, " + std::to_string(error),
                           "E object: verify_cert_chain fail"};
        expectRefused(encoded(path), true, log, true);
        expectRefused(encoded(withFirst(path)), false, log, true);
    }
}

TEST(AttestationChain, RefusesShortChainsInBothModes) {
    const std::vector<Certificate> path = certificates(2);
    const Lines log = {"E object: Invalid attestion chain length"};
    for (const bool chain_only : {true, false}) {
        expectRefused(encoded(path), chain_only, log, false);
        expectRefused({encoded(path)[1]}, chain_only, log, false);
        expectRefused({}, chain_only, log, false);
    }
    expectRefused(encoded(withFirst({path[1]})), false, log, false);
}

TEST(AttestationChain, RefusesWhatIsNotACertificate) {
    const Chain path = encoded(certificates(3));
    const Chain separate = encoded(withFirst(certificates(3)));
    const std::pair<const char*, std::function<void(hidl_vec<uint8_t>&)>> damages[] = {
        {"garbage", [](auto& der) { der = bytes("garbage"); }},
        {"one byte short", [](auto& der) { der.resize(der.size() - 1); }},
        {"20 bytes", [](auto& der) { der.resize(20); }},
        {"empty", [](auto& der) { der = hidl_vec<uint8_t>(); }},
    };
    for (const auto& [name, damage] : damages) {
        SCOPED_TRACE(name);
        for (const bool chain_only : {true, false}) {
            const Chain& good = chain_only ? path : separate;
            for (size_t i = 0; i < good.size(); ++i) {
                SCOPED_TRACE("element " + std::to_string(i));
                Chain bad = good;
                damage(bad[i]);
                const bool is_leaf = i == (chain_only ? 0 : 1);  // there the queue is not printed
                expectRefused(bad, chain_only, {"E object: d2i_X509 error"}, !is_leaf);
            }
        }
    }
}

TEST(AttestationChain, SeparateFirstMustBeSignedByThePathsLeaf) {
    std::vector<Certificate> chain = withFirst(certificates(2));
    expectAccepted(encoded(chain), false);
    expectAccepted(encoded(withFirst(certificates(9))), false);

    const Lines log = {"E object: X509_verify error during GAK"};
    chain[0].signer = 1;  // the root's
    expectRefused(encoded(chain), false, log, true);
    chain[0].signer = 20;  // of another kind
    expectRefused(encoded(chain), false, log, true);

    chain = withFirst(certificates(2));
    chain[1].change = [](X509* leaf) {  // its key leaves the curve
        const unsigned char* point = nullptr;
        int len = 0;
        X509_PUBKEY_get0_param(nullptr, &point, &len, nullptr, X509_get_X509_PUBKEY(leaf));
        const_cast<unsigned char*>(point)[len - 1] ^= 1;
    };
#ifdef OPENSSL_IS_BORINGSSL
    const Lines unreadable = {"E object: X509_get_pubkey error"};
#else  // the path does not verify either
    const Lines unreadable = {"E object: X509_verify_cert fail -1, 1",
                              "E object: verify_cert_chain fail"};
#endif
    expectRefused(encoded(chain), false, unreadable, true);
}

}  // namespace
