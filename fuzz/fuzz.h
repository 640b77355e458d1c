// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the fuzz targets share. Pieces of the input lie in heap blocks of their exact size, so that
// the address sanitizer sees a read past an end.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// Ends the run when something that must hold does not.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

struct Block {
    std::unique_ptr<uint8_t[]> data;
    uint32_t len;

    const char* text() const { return reinterpret_cast<const char*>(data.get()); }
};

// Takes pieces of the input from its front.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t byte() {
        if (size_ == 0) {
            return 0;
        }
        --size_;
        return *data_++;
    }

    // Takes a piece whose length the next two bytes give, or all that is left when that is less.
    Block block() {
        const size_t low = byte();
        const size_t wanted = low + 256 * size_t{byte()};
        return take(wanted < size_ ? wanted : size_);
    }

    Block rest() { return take(size_); }
    bool empty() const { return size_ == 0; }

  private:
    Block take(size_t len) {
        Block block = {std::make_unique<uint8_t[]>(len), static_cast<uint32_t>(len)};
        if (len != 0) {
            std::memcpy(block.data.get(), data_, len);
        }
        data_ += len;
        size_ -= len;
        return block;
    }

    const uint8_t* data_;
    size_t size_;
};

}  // namespace fuzz
