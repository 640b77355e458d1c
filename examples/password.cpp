// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Converts key material with a password-bound key of the hardware, and back.
// docs/password-and-attestation.md has the meaning of the arguments.

#include <openssl/crypto.h>
#include <soft_keymaster/soft_keymaster.h>  // the host's keymaster; a device has its own
#include <zelkeymaster_operation.h>

#include <cstdio>

using Bytes = android::hardware::hidl_vec<uint8_t>;

int main() {
    soft_keymaster::SoftKeymaster keymaster({"soft_keymaster_root.key"});
    ZelKeymasterOperation object(&keymaster, /*enableSecureDb=*/false);  // needs no store

    // Bytes that the hardware alone interprets; none may be empty.
    const Bytes in1 = {1}, in2 = {2}, in3 = {3}, in4 = {4};
    const Bytes material = {10, 11, 12, 13};
    Bytes key, tag, rot;  // tag: 16 bytes, needed for the way back; rot: 16 bytes of the hardware
    int status = object.encryptWithPasswordHWKey(in1, in2, material, key, in3, in4, tag, rot,
                                                 PW_ENCRYPT_TYPE_TO_KEY);

    Bytes back;
    if (status == ZELKM_OK) {
        status = object.encryptWithPasswordHWKey(in1, in2, key, back, in3, in4, tag,
                                                 PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY);
    }
    const bool is_same = back == material;
    // The object wipes its copies; inputs and outputs are the caller's.
    OPENSSL_cleanse(key.data(), key.size());
    OPENSSL_cleanse(back.data(), back.size());
    std::printf("status %d, %s\n", status, is_same ? "the material came back" : "no material");
    return status == ZELKM_OK && is_same ? 0 : 1;
}
