// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Records the memory that the library wipes, in programs that are linked with
// --wrap=OPENSSL_cleanse.

#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace test {

// The addresses that were wiped, each with the bytes that were there.
inline std::vector<std::pair<const void*, std::string>> g_wiped;

inline bool wiped(const std::string& content) {
    return std::any_of(g_wiped.begin(), g_wiped.end(),
                       [&](const auto& wipe) { return wipe.second == content; });
}

// Whether a longer piece with this in it was wiped.
inline bool wipedWithin(const std::string& content) {
    return std::any_of(g_wiped.begin(), g_wiped.end(), [&](const auto& wipe) {
        return wipe.second.find(content) != std::string::npos;
    });
}

}  // namespace test

extern "C" {

void __real_OPENSSL_cleanse(void* data, size_t len);

[[gnu::used]] inline void __wrap_OPENSSL_cleanse(void* data, size_t len) {
    const char* text = static_cast<const char*>(data);
    test::g_wiped.emplace_back(data, std::string(text, text + len));
    __real_OPENSSL_cleanse(data, len);
}

}  // extern "C"
