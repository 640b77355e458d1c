// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Encrypts and decrypts with the calls that the library makes.

#pragma once

#include "caller.h"

namespace keymaster_check {

// The seven parameters of the database key.
Params databaseKeyParams();
// The parameters with which an operation under that key begins.
Params gcmParams();

// The course of an operation, with all output of each call.
struct Run {
    enum class End { kDone, kBegin, kUpdate, kFinish };

    End ended = End::kBegin;  // kDone, or the call that went wrong
    int error = -1000;        // of that call; 0 also when it did not take its input
    Bytes nonce;              // of an encryption
    size_t nonces = 0;
    Bytes from_updates;
    Bytes from_finish;

    bool done() const { return ended == End::kDone; }
    // Ciphertext and tag of an encryption, or the plaintext of a decryption.
    Bytes all() const;
    // E.g. "update answered -1000".
    std::string failure() const;
};

// Each update offers `cut` bytes of the rest. With the default, it offers all of the rest.
Run encrypt(Caller& caller, const Bytes& key, const Bytes& payload, const Bytes& associated_data,
            size_t cut = SIZE_MAX);
// `input` is the ciphertext with the tag at its end.
Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data, size_t cut = SIZE_MAX);

// `size` bytes in a fixed sequence that does not repeat soon.
Bytes samplePayload(size_t size);
Bytes randomBytes(size_t size);
// The associated data of every store that the library writes.
Bytes sampleAssociatedData();
// A copy of `bytes` with one bit of the byte `at` changed. It is unchanged when there is no such
// byte.
Bytes altered(Bytes bytes, size_t at);

}  // namespace keymaster_check
