// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The wrapped allocation functions, and the counter that they share.

#include "failing_memory.h"

#include <openssl/crypto.h>

#include <cstdlib>
#include <cstring>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* old, size_t size);
}

namespace {

long g_countdown;  // 0: not armed
bool g_for_good;
bool g_failed;

constexpr size_t kTooMuch = size_t{1} << 30;

bool failNow(size_t size) {
    if (size > kTooMuch) {
        return true;
    }
    if (g_countdown == 0 || test::allocations_paused != 0) {
        return false;
    }
    if (g_countdown > 1) {
        --g_countdown;
        return false;
    }
    if (g_failed && !g_for_good) {
        return false;
    }
    g_failed = true;
    return true;
}

// Whether an allocation of libcrypto may fail. Most others belong to its search for a decoder, with
// thousands for each certificate.
[[maybe_unused]] bool isOfCertificates(const char* file) {
    const auto in = [file](const char* folder) { return std::strstr(file, folder) != nullptr; };
    return file == nullptr || in("/asn1/") || in("/x509/") || in("/stack/");
}

}  // namespace

namespace test {

void failAllocation(long nth, bool for_good) {
    g_countdown = nth;
    g_for_good = for_good;
    g_failed = false;
}

bool stopFailing() {
    g_countdown = 0;
    return g_failed;
}

bool useFailingLibcryptoMemory() {
#ifdef OPENSSL_IS_BORINGSSL
    return false;  // its allocator cannot be replaced
#else
    return CRYPTO_set_mem_functions(
               [](size_t size, const char* file, int) {
                   return isOfCertificates(file) ? std::malloc(size) : __real_malloc(size);
               },
               [](void* old, size_t size, const char* file, int) {
                   return isOfCertificates(file) ? std::realloc(old, size)
                                                 : __real_realloc(old, size);
               },
               [](void* block, const char*, int) { std::free(block); }) == 1;
#endif
}

}  // namespace test

extern "C" {

void* __wrap_malloc(size_t size) {
    return failNow(size) ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return failNow(count * size) ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* old, size_t size) {
    return failNow(size) ? nullptr : __real_realloc(old, size);
}

}  // extern "C"
