// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Owners of buffers from malloc().

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace zelkm {

struct FreeDeleter {
    void operator()(void* buffer) const { std::free(buffer); }
};

using MallocBuffer = std::unique_ptr<uint8_t[], FreeDeleter>;

// Null when out of memory.
inline MallocBuffer allocateBuffer(size_t len) {
    return MallocBuffer(static_cast<uint8_t*>(std::malloc(len)));
}

// The same, filled with zeros.
inline MallocBuffer allocateZeroedBuffer(size_t len) {
    return MallocBuffer(static_cast<uint8_t*>(std::calloc(1, len)));
}

}  // namespace zelkm
