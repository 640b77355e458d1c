// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// operator new over malloc, so that it fails where failing_memory.h lets malloc fail.

#include <cstdlib>
#include <new>

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size != 0 ? size : 1);
}

void* operator new(size_t size) {
    void* block = operator new(size, std::nothrow);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new[](size_t size) {
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    std::free(block);
}
