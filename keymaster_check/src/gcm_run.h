// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Encryptions and decryptions, made with the calls that the library makes.

#pragma once

#include "caller.h"

namespace keymaster_check {

// The seven parameters of the database key.
Params databaseKeyParams();
// What an operation with it begins with.
Params gcmParams();

// How an operation went, with all output of each call.
struct Run {
    enum class End { kDone, kBegin, kUpdate, kFinish };

    End ended = End::kBegin;  // kDone, or the call that did not do as it should
    int error = -1000;        // of that call; 0 also when it did not take its input
    Bytes nonce;              // encrypting
    size_t nonces = 0;
    Bytes from_updates;
    Bytes from_finish;

    bool done() const { return ended == End::kDone; }
    // Ciphertext and tag, or plaintext.
    Bytes all() const;
    // "update answered -1000"
    std::string failure() const;
};

// Updates offer `cut` bytes of what is left, or all of it.
Run encrypt(Caller& caller, const Bytes& key, const Bytes& payload, const Bytes& associated_data,
            size_t cut = SIZE_MAX);
// `input` is the ciphertext with the tag at its end.
Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data, size_t cut = SIZE_MAX);

// `size` bytes that do not repeat soon.
Bytes samplePayload(size_t size);
Bytes randomBytes(size_t size);
// What the library authenticates with each store.
Bytes sampleAssociatedData();
// `bytes` with one bit of the byte `at` changed; as they are when there is no such byte.
Bytes altered(Bytes bytes, size_t at);

}  // namespace keymaster_check
