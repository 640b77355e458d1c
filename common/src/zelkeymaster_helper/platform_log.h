// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lines of the platform log. Each statement has one format string, made of the level's prefix and
// the message. It is filled with the base name of the source, the line and the message's arguments.
// Only the operation object's source and the engine's source include this header.

#pragma once

#include <android/log.h>

#include <cstdio>
#include <cstring>

#define ZELKM_ERROR_PREFIX "[\033[31mERR\033[0m] (%s:%d) "
#define ZELKM_WARNING_PREFIX "[WRN] (%s:%d) "
#define ZELKM_DEBUG_PREFIX "[DBG] (%s:%d) "

// This is a macro because prefix and message become one literal, and because the line is the
// caller's. The sizeof is never evaluated: it lets the compiler check the message's arguments.
#define ZELKM_PLATFORM_LOG(priority, prefix, ...)         \
    (static_cast<void>(sizeof(std::printf(__VA_ARGS__))), \
     ::zelkm::platformLog(priority, __FILE__, __LINE__, prefix __VA_ARGS__))

namespace zelkm {

inline constexpr char kLogTag[] = "keymaster_tee";

// The part of a path after its last '/', or the whole path.
inline const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

template <typename... Args>
void platformLog(int priority, const char* path, int line, const char* format, Args... args) {
    __android_log_print(priority, kLogTag, format, baseName(path), line, args...);
}

}  // namespace zelkm
