// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Asks for a certificate signing request, and checks an attestation chain, both for a new key.

#include <soft_keymaster/soft_keymaster.h>  // the host's keymaster; a device has its own
#include <zelkeymaster_operation.h>

#include <cstdio>
#include <string>

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using Bytes = hidl_vec<uint8_t>;

namespace {

KeyParameter parameter(Tag tag, uint32_t value) {
    KeyParameter made = {};  // the structure has no default member initialisers
    made.tag = tag;
    made.f.integer = value;
    return made;
}

KeyParameter parameter(Tag tag, const std::string& bytes) {
    KeyParameter made = {};
    made.tag = tag;
    made.blob = std::vector<uint8_t>(bytes.begin(), bytes.end());
    return made;
}

// The blob of a new EC key; empty when the keymaster refuses it.
Bytes makeKey(soft_keymaster::SoftKeymaster& keymaster) {
    KeyParameter no_auth = {};
    no_auth.tag = Tag::NO_AUTH_REQUIRED;
    no_auth.f.boolValue = true;
    const hidl_vec<KeyParameter> kind = {
        parameter(Tag::ALGORITHM, static_cast<uint32_t>(Algorithm::EC)),
        parameter(Tag::KEY_SIZE, 256),
        parameter(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::SIGN)),
        parameter(Tag::DIGEST, static_cast<uint32_t>(Digest::SHA_2_256)), no_auth};
    Bytes blob;
    const auto called = keymaster.generateKey(
        kind, [&blob](ErrorCode, const Bytes& made, const KeyCharacteristics&) { blob = made; });
    return called.isOk() ? blob : Bytes();
}

}  // namespace

int main() {
    soft_keymaster::SoftKeymaster keymaster({"soft_keymaster_root.key"});
    ZelKeymasterOperation object(&keymaster, /*enableSecureDb=*/false);  // needs no store
    const Bytes key = makeKey(keymaster);
    // The challenge is fresh, and comes from whoever will look at the result.
    const hidl_vec<KeyParameter> params = {
        parameter(Tag::ATTESTATION_CHALLENGE, "32 random bytes of the server..."),
        parameter(Tag::ATTESTATION_APPLICATION_ID, "example")};

    // Empty before: a keymaster that does not know requests leaves it so, and the result is 0.
    Bytes request;
    const int requested = object.generateCSR(key, params, request);
    std::printf("status %d, %s\n", requested, request.size() != 0 ? "a request" : "no request");

    hidl_vec<Bytes> chain;
    const auto called = keymaster.attestKey(
        key, params, [&chain](ErrorCode, const hidl_vec<Bytes>& made) { chain = made; });
    const bool is_attested = called.isOk();
    // 0 says that the certificates fit each other. Trust needs more: compare the last one with the
    // roots that you trust, and the challenge in the first one with yours.
    const int checked = ZelKeymasterOperation::validateAttestChain(chain, /*chainOnly=*/true);
    std::printf("status %d, %zu certificates\n", checked, chain.size());
    const bool is_good = requested == ZELKM_OK && request.size() != 0 && is_attested;
    return is_good && checked == ZELKM_OK ? 0 : 1;
}
