// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Encrypts and decrypts with the calls that the library makes.

#pragma once

#include <optional>

#include "caller.h"
#include "velt_secure_db.h"

namespace keymaster_check {

constexpr size_t kTagSize = SDB_TAG_LEN;
constexpr size_t kNonceSize = SDB_IV_LEN;
constexpr size_t kPayload = 100;  // of most samples: not a multiple of a block

// The course of an operation, with all output of each call.
struct Run {
    KeyPurpose purpose = KeyPurpose::ENCRYPT;
    std::optional<Call> failed = Call::kBegin;  // the call that went wrong
    Answer last = {};                           // of that call
    size_t offered = 0;                         // bytes to the last update
    Bytes nonce = {};                           // of an encryption
    Bytes from_updates = {};
    Bytes from_finish = {};

    bool done() const { return !failed; }
    // Ciphertext and tag of an encryption, or the plaintext of a decryption.
    Bytes all() const;
    // Whether it ended well with a sample payload of this size. Bytes beyond it do not count:
    // gcm.tag-in-finish judges them.
    bool bringsBack(size_t size) const;
    // E.g. "update returned -1000 UNKNOWN_ERROR".
    std::string failure() const;
    // What the library makes of a store that it encrypts, or decrypts, in this way.
    std::string consequence() const;
};

// `size` bytes in a fixed sequence that does not repeat soon.
Bytes samplePayload(size_t size);
// The associated data of every store that the library writes.
Bytes sampleAssociatedData();

// Encrypts a sample payload of this size. Each update offers `cut` bytes of the rest. With the
// default, it offers all of the rest.
Run encrypt(Caller& caller, const Bytes& key, size_t size, size_t cut = SIZE_MAX);
// `input` is the ciphertext with the tag at its end.
Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data = sampleAssociatedData(), size_t cut = SIZE_MAX);
// What an encryption made, and in the same way.
inline Run decrypt(Caller& caller, const Bytes& key, const Run& encryption, size_t cut = SIZE_MAX) {
    return decrypt(caller, key, encryption.nonce, encryption.all(), sampleAssociatedData(), cut);
}

// Begins an encryption and aborts it.
Answer beginAndAbort(Caller& caller, const Bytes& key);
inline bool operationBegins(Caller& caller, const Bytes& key) {
    return beginAndAbort(caller, key).ok();
}
// The nonce of such an encryption; empty when it brings none. Starts a case.
Bytes drawNonce(Caller& caller, const Bytes& key);

Bytes randomBytes(size_t size);
// A copy of `bytes` with one bit of the byte `at` changed. It is unchanged when there is no such
// byte.
Bytes altered(Bytes bytes, size_t at);

}  // namespace keymaster_check
