// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Owners of buffers from malloc(). Allocating functions return null when out of memory.

#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zelkm {

struct FreeDeleter {
    void operator()(void* buffer) const { std::free(buffer); }
};

using MallocBuffer = std::unique_ptr<uint8_t[], FreeDeleter>;

inline MallocBuffer allocateBuffer(size_t len) {
    return MallocBuffer(static_cast<uint8_t*>(std::malloc(len)));
}

// Wipes a buffer of `len` bytes, and releases it.
struct WipingDeleter {
    size_t len = 0;
    void operator()(void* buffer) const {
        OPENSSL_cleanse(buffer, len);
        std::free(buffer);
    }
};

using SecretBuffer = std::unique_ptr<uint8_t[], WipingDeleter>;

inline SecretBuffer allocateSecretBuffer(size_t len) {
    return SecretBuffer(static_cast<uint8_t*>(std::malloc(len)), {len});
}

// The same, with all bytes 0.
inline SecretBuffer allocateZeroedSecretBuffer(size_t len) {
    return SecretBuffer(static_cast<uint8_t*>(std::calloc(1, len)), {len});
}

}  // namespace zelkm
