// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks of certificate requests and attestation chains.

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "checks.h"
#include "openssl_handles.h"
#include "private_directory.h"
#include "zelkeymaster_operation.h"

namespace keymaster_check {
namespace {

using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::Digest;
using android::hardware::keymaster::V4_0::EcCurve;

constexpr size_t kMinChain = 3;
constexpr char kShown[] = "what csr.request shows";
constexpr char kUseless[] = "generateCSR returns a request that no authority accepts";

using zelkm::EvpPkeyPtr;
using RequestPtr = std::unique_ptr<X509_REQ, zelkm::OpenSslDeleter<X509_REQ_free>>;

Params attestedKeyParams() {
    return {param(Tag::ALGORITHM, Algorithm::EC),  param(Tag::KEY_SIZE, 256),
            param(Tag::EC_CURVE, EcCurve::P_256),  param(Tag::PURPOSE, KeyPurpose::SIGN),
            param(Tag::DIGEST, Digest::SHA_2_256), param(Tag::NO_AUTH_REQUIRED, true)};
}

std::vector<KeyParameter> attestationParams() {
    static constexpr char kApplication[] = "keymaster_check";
    return {param(Tag::ATTESTATION_CHALLENGE, randomBytes(32)),
            param(Tag::ATTESTATION_APPLICATION_ID,
                  Bytes(kApplication, kApplication + sizeof(kApplication) - 1))};
}

// Attests the key. Makes the key first. Returns the first call that failed, or else the
// attestation.
Answer attest(Context& context, const Params& params) {
    if (context.attested_key.empty()) {
        const Answer made = context.make({Call::kGenerateKey, {}, attestedKeyParams()});
        if (!made.ok()) {
            return made;
        }
        context.attested_key = made.output;
    }
    return context.make({Call::kAttestKey, context.attested_key, params});
}

// The key of a certificate. Bytes after the certificate are left for the library to judge.
EvpPkeyPtr keyOfCertificate(const Bytes& der) {
    const uint8_t* at = der.data();
    const zelkm::X509Ptr certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    return EvpPkeyPtr(certificate == nullptr ? nullptr : X509_get_pubkey(certificate.get()));
}

// What may be the public half of the attested key, taken from other answers of the keymaster: the
// exported key, or else the keys of the attestation's certificates, whose order attest.chain
// judges.
std::vector<EvpPkeyPtr> attestedPublicKeys(Context& context) {
    std::vector<EvpPkeyPtr> keys;
    const auto add = [&keys](EvpPkeyPtr key) {
        if (key != nullptr) {
            keys.push_back(std::move(key));
        }
    };
    CallRecord call = {Call::kExportKey, context.attested_key};
    call.format = KeyFormat::X509;  // the public key
    const Answer exported = context.make(call);
    const uint8_t* at = exported.output.data();
    if (exported.ok()) {
        add(EvpPkeyPtr(d2i_PUBKEY(nullptr, &at, static_cast<long>(exported.output.size()))));
    }
    if (keys.empty()) {
        const Answer attested = attest(context, attestationParams());
        for (const hidl_vec<uint8_t>& certificate : attested.chain) {
            add(keyOfCertificate(certificate));
        }
    }
    return keys;
}

}  // namespace

Finding checkCsrRequest(Context& context) {
    std::vector<KeyParameter> params = attestationParams();
    params.push_back(param(TAG_GENERATE_CSR, true));
    const Answer answer = attest(context, params);
    if (!answer.ok()) {
        return refusedOrBroken(context, answer, "no request", "generateCSR fails with -1000");
    }
    if (answer.chain.size() != 1 || answer.chain[0].size() == 0) {
        return broken(context, "not one blob with the request, but " +
                                   std::to_string(answer.chain.size()) +
                                   ": is the tag 0x70000899 ignored?");
    }
    context.request = answer.chain[0];
    return holds(context.sent(), context.answered());
}

Finding checkCsrProof(Context& context) {
    if (context.request.empty()) {
        return notTried("there is no request: see csr.request");
    }
    const std::string size = "the request of " + std::to_string(context.request.size()) + " bytes";
    const uint8_t* at = context.request.data();
    const RequestPtr request(d2i_X509_REQ(nullptr, &at, static_cast<long>(context.request.size())));
    if (request == nullptr || at != context.request.data() + context.request.size()) {
        return {"", Verdict::kBroken, kShown, size + " is no PKCS #10", kUseless};
    }
    const EvpPkeyPtr requested(X509_REQ_get_pubkey(request.get()));
    if (requested == nullptr || X509_REQ_verify(request.get(), requested.get()) != 1) {
        return {"", Verdict::kBroken, kShown, size + ": its signature is wrong", kUseless};
    }
    const std::vector<EvpPkeyPtr> attested = attestedPublicKeys(context);
    if (attested.empty()) {
        return holds(context.sent(),
                     "PKCS #10 with a good signature; neither exportKey "
                     "nor attestKey returns the attested key to compare");
    }
    if (std::none_of(attested.begin(), attested.end(), [&request](const EvpPkeyPtr& key) {
            return X509_REQ_verify(request.get(), key.get()) == 1;
        })) {
        return broken(context, "the request is for another key than the attested one",
                      "generateCSR returns a request for another key's certificate");
    }
    return holds(context.sent(), "PKCS #10 for the attested key, with a good signature");
}

Finding checkAttestChain(Context& context) {
    const Answer answer = attest(context, attestationParams());
    if (!answer.ok()) {
        return refusedOrBroken(context, answer, "no chain", "attestations fail with -1000");
    }
    if (answer.chain.size() < kMinChain) {
        return broken(context, "fewer than three certificates");
    }
    const PrivateDirectory directory;  // for the error file, to which validateAttestChain writes
    const int result = ZelKeymasterOperation::validateAttestChain(answer.chain, /*chainOnly=*/true);
    if (result != 0) {
        return broken(context, "validateAttestChain returns " + describeCode(result));
    }
    return holds(context.sent(), context.answered() + "; validateAttestChain: 0");
}

}  // namespace keymaster_check
