// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// To be loaded into a program before libc (LD_PRELOAD). Counts the program's file calls and
// allocations, from the first directory that it opens, and lets one fail, be the last, or wait.
// Under the address sanitizer, which has its own allocator, file calls alone.

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// What a test (tool/failing_tool.py) and the program tell each other. The program stops where it
// opens its first directory. From there it goes on in a child of its own for each order.
constexpr int kOrders = 100;  // the program's descriptors
constexpr int kReports = 101;

enum class Fate {
    kFails,
    kEndsAll,  // this file call is not made, nor anything after it: a power cut
    kWaits,    // this file call is made after another order; until then the test may do something
};

struct Order {
    long nth = 0;  // of the file calls, and of the allocations if they can fail; with 0 none
    Fate fate = Fate::kFails;
};

struct Report {
    int status;  // of the child, as waitpid() has it; kWaiting before the call that waits
    long count;  // of its file calls and allocations
};

constexpr int kWaiting = -1;

constexpr int kMaxDescriptors = 1024;

Order g_order;
long* g_count;  // shared with the children; null before the first directory

// Descriptors of files that were written and not flushed. They stay open: with the power their
// content is lost.
bool g_unflushed[kMaxDescriptors];

void losePower() {
    for (int fd = STDERR_FILENO + 1; fd < kMaxDescriptors; ++fd) {
        if (g_unflushed[fd] && ::ftruncate(fd, 0) != 0) {
            ::_exit(1);
        }
    }
    ::raise(SIGKILL);
}

void waitForOrder() {
    long* const count = std::exchange(g_count, nullptr);  // these calls are not the program's
    const Report report = {kWaiting, *count};
    Order go_on;
    if (::write(kReports, &report, sizeof(report)) != sizeof(report) ||
        ::read(kOrders, &go_on, sizeof(go_on)) != sizeof(go_on)) {
        ::_exit(1);
    }
    g_count = count;
}

bool fails(int error = EIO) {
    if (g_count == nullptr || ++*g_count != g_order.nth) {
        return false;
    }
    if (g_order.fate == Fate::kWaits) {
        waitForOrder();
        return false;
    }
    if (g_order.fate == Fate::kEndsAll) {
        losePower();
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

[[maybe_unused]] bool allocationFails(void* caller) {
    const auto at = reinterpret_cast<uintptr_t>(caller);
    return g_order.fate == Fate::kFails && (at < g_libcrypto[0] || at >= g_libcrypto[1]) &&
           fails(ENOMEM);
}

// Returns in the children, one for each order.
void obeyOrders() {
    ::dl_iterate_phdr(findLibcrypto, nullptr);
    unsigned char random = 0;  // the children inherit a libcrypto that is set up
    static_cast<void>(RAND_bytes(&random, 1));
    EVP_CIPHER_free(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr));
    void* const shared = ::mmap(nullptr, sizeof(*g_count), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* const count = static_cast<long*>(shared);
    while (::read(kOrders, &g_order, sizeof(g_order)) == sizeof(g_order)) {
        *count = 0;
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(::open("stdout", O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
            ::dup2(::open("stderr", O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            ::alarm(120);  // ends a program that hangs
            g_count = count;
            return;
        }
        Report report = {};
        ::waitpid(child, &report.status, 0);
        report.count = *count;
        if (::write(kReports, &report, sizeof(report)) != sizeof(report)) {
            break;
        }
    }
    ::_exit(0);
}

bool isFile(int fd) {
    return fd > STDERR_FILENO && fd < kMaxDescriptors;
}

// Returns true.
bool setUnflushed(int fd, bool unflushed) {
    if (isFile(fd)) {
        g_unflushed[fd] = unflushed;
    }
    return true;
}

bool openFails(int flags) {
    if ((flags & O_DIRECTORY) != 0 && g_count == nullptr) {
        obeyOrders();
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

#ifndef __SANITIZE_ADDRESS__
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
#endif

// All files that the tool makes are for their owner.
FAILING(int, open, (const char* path, int flags, ...), (path, flags, 0600), openFails(flags))
FAILING(int, openat, (int at, const char* path, int flags, ...), (at, path, flags, 0600),
        openFails(flags))
FAILING(ssize_t, read, (int fd, void* data, size_t len), (fd, data, len), fails())
FAILING(ssize_t, write, (int fd, const void* data, size_t len), (fd, data, len),
        fails() || !setUnflushed(fd, true))
int close(int fd) {
    static auto* const real = next<int(int)>("close");
    return isFile(fd) && g_unflushed[fd] ? 0 : real(fd);
}
FAILING(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), fails())
FAILING(int, fstat, (int fd, struct stat* status), (fd, status), fails())
FAILING(int, fstatat, (int at, const char* path, struct stat* status, int flags),
        (at, path, status, flags), fails())
FAILING(int, rename, (const char* from, const char* to), (from, to), fails())
FAILING(int, link, (const char* from, const char* to), (from, to), fails())
FAILING(int, renameat, (int from_at, const char* from, int to_at, const char* to),
        (from_at, from, to_at, to), fails())
FAILING(int, renameat2, (int from_at, const char* from, int to_at, const char* to, unsigned flags),
        (from_at, from, to_at, to, flags), fails())
FAILING(int, mkdirat, (int at, const char* path, mode_t mode), (at, path, mode), fails())
FAILING(int, unlinkat, (int at, const char* path, int flags), (at, path, flags), fails())
FAILING(int, unlink, (const char* path), (path), fails())
FAILING(int, fchdir, (int fd), (fd), fails())

// These also do nothing when they work: no state must last, and they take long.
int fsync(int fd) {
    return fails() || !setUnflushed(fd, false) ? -1 : 0;
}
int fdatasync(int fd) {
    return fsync(fd);
}

}  // extern "C"
