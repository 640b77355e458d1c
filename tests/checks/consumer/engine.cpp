// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Uses the engine alone, from a project outside.

#include <openssl/crypto.h>
#include <velt_secure_db.h>

#include <cstdlib>

#ifdef OPENSSL_IS_BORINGSSL
#error "the package's include folders must not hide the system's OpenSSL"
#endif

int main() {
    uint64_t handle = 0;
    unsigned char* out = nullptr;
    unsigned int len = 0;
    const int status = sdb_query("SELECT (ALIAS)", 14, nullptr, 0, &out, &len, &handle);
    std::free(out);
    return status == 0 && len == 1 && handle != 0 ? 0 : 1;
}
