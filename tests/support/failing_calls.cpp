// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// To be loaded into a program before libc (LD_PRELOAD). Counts the program's file calls and
// allocations, from the first directory that it opens. The one with the number FAIL_AT fails; with
// FAIL_KILLS it ends the process. The file FAIL_COUNT receives the count when the program ends.

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

long numberIn(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr ? std::atol(value) : 0;
}

const long g_fail_at = numberIn("FAIL_AT");
const bool g_kills = numberIn("FAIL_KILLS") != 0;
bool g_counting;
long g_count;

struct Report {
    ~Report() {
        g_counting = false;
        if (const char* path = std::getenv("FAIL_COUNT")) {
            std::ofstream(path) << g_count;
        }
    }
} const g_report;

bool fails(int error = EIO) {
    if (!g_counting || ++g_count != g_fail_at) {
        return false;
    }
    if (g_kills) {
        ::raise(SIGKILL);
    }
    errno = error;
    return true;
}

// libcrypto makes some ten thousand allocations when it starts; these never fail.
uintptr_t g_libcrypto[2];  // where its code begins and ends

int findLibcrypto(dl_phdr_info* library, size_t /*len*/, void* /*context*/) {
    for (int i = 0; i < library->dlpi_phnum; ++i) {
        const auto& part = library->dlpi_phdr[i];
        if ((part.p_flags & PF_X) != 0 && std::strstr(library->dlpi_name, "libcrypto") != nullptr) {
            g_libcrypto[0] = library->dlpi_addr + part.p_vaddr;
            g_libcrypto[1] = g_libcrypto[0] + part.p_memsz;
        }
    }
    return 0;
}

bool allocationFails(void* caller) {
    const auto at = reinterpret_cast<uintptr_t>(caller);
    return (at < g_libcrypto[0] || at >= g_libcrypto[1]) && fails(ENOMEM);
}

bool openFails(int flags) {
    if ((flags & O_DIRECTORY) != 0 && !g_counting) {
        ::dl_iterate_phdr(findLibcrypto, nullptr);
        g_counting = true;
    }
    return fails();
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// Defines a function that stands in front of the one of its name.
#define FAILING(result, name, parameters, arguments, failed)      \
    result name parameters {                                      \
        static auto* const real = next<result parameters>(#name); \
        return failed ? static_cast<result>(-1) : real arguments; \
    }

extern "C" {

void* __libc_malloc(size_t len);
void* __libc_calloc(size_t count, size_t len);
void* __libc_realloc(void* data, size_t len);

void* malloc(size_t len) {
    return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_malloc(len);
}
void* calloc(size_t count, size_t len) {
    return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, len);
}
void* realloc(void* data, size_t len) {
    return allocationFails(__builtin_return_address(0)) ? nullptr : __libc_realloc(data, len);
}

// All files that the tool makes are for their owner.
FAILING(int, open, (const char* path, int flags, ...), (path, flags, 0600), openFails(flags))
FAILING(int, openat, (int at, const char* path, int flags, ...), (at, path, flags, 0600),
        openFails(flags))
FAILING(ssize_t, read, (int fd, void* data, size_t len), (fd, data, len), fails())
FAILING(ssize_t, write, (int fd, const void* data, size_t len), (fd, data, len), fails())
FAILING(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), fails())
FAILING(int, fstat, (int fd, struct stat* status), (fd, status), fails())
FAILING(int, fstatat, (int at, const char* path, struct stat* status, int flags),
        (at, path, status, flags), fails())
FAILING(int, rename, (const char* from, const char* to), (from, to), fails())
FAILING(int, link, (const char* from, const char* to), (from, to), fails())
FAILING(int, renameat2, (int from_at, const char* from, int to_at, const char* to, unsigned flags),
        (from_at, from, to_at, to, flags), fails())
FAILING(int, unlinkat, (int at, const char* path, int flags), (at, path, flags), fails())
FAILING(int, unlink, (const char* path), (path), fails())
FAILING(int, fchdir, (int fd), (fd), fails())
FAILING(int, fsync, (int fd), (fd), fails())

}  // extern "C"
