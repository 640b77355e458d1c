// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A growing array of plain values in memory from malloc. The memory is wiped before it is released,
// because what is derived from stored values is as secret as they are.

#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace zelkm {

// The destructor releases nothing, because a static array lives as long as its process. The owner
// of any other array calls release(). A copy shares the elements with the original.
template <typename T>
class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    // Makes room for `count` more elements. False when out of memory: the array is then unchanged.
    [[nodiscard]] bool reserve(size_t count) {
        if (capacity_ - size_ >= count) {
            return true;
        }
        const size_t wanted = size_ + count;
        const size_t capacity = wanted > 2 * capacity_ ? wanted : 2 * capacity_;
        // realloc() would leave the content of the old block behind.
        T* data = static_cast<T*>(std::malloc(capacity * sizeof(T)));
        if (data == nullptr) {
            return false;
        }
        const size_t size = size_;
        if (size != 0) {
            std::memcpy(data, data_, size * sizeof(T));
        }
        release();
        data_ = data;
        size_ = size;
        capacity_ = capacity;
        return true;
    }

    void push(const T& value) { data_[size_++] = value; }  // there must be reserved room

    // Changes the size within the reserved room. Elements that are cut off are wiped.
    void resize(size_t size) {
        if (size < size_) {
            OPENSSL_cleanse(data_ + size, (size_ - size) * sizeof(T));
        }
        size_ = size;
    }

    // Copies `count` elements from `from` to `to`, which is nearer to the start.
    void move(size_t to, size_t from, size_t count) {
        if (to != from && count != 0) {
            std::memmove(data_ + to, data_ + from, count * sizeof(T));
        }
    }

    void release() {
        resize(0);
        std::free(data_);
        *this = {};
    }

    T* data() const { return data_; }
    size_t size() const { return size_; }
    T* begin() const { return data_; }
    T* end() const { return data_ + size_; }
    T& operator[](size_t i) const { return data_[i]; }

  private:
    T* data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace zelkm
