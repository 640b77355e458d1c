// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Sequences of commands and blobs for sdb_query(), with a callback that behaves as the input says.
// The results must be listed codes, outputs untouched on failure, and a stale handle refused.

#include <algorithm>
#include <iterator>

#include "fuzz.h"
#include "velt_secure_db.h"

namespace {

constexpr int kCallbackError = -4242;

// Mode of the callback: 0 works, 1 refuses to encrypt, 2 refuses to decrypt, 3 fills nothing.
int callback(void* ctx, unsigned int mode, unsigned char* plain, unsigned char* cipher,
             unsigned int len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
             unsigned int aad_len) {
    const uint8_t behaviour = *static_cast<uint8_t*>(ctx);
    fuzz::require(aad_len == SDB_AAD_LEN && len != 0 && aad != nullptr);
    fuzz::require((mode == 1) == (plain == cipher));
    if (behaviour == 3) {
        return 0;
    }
    if (behaviour == (mode == 1 ? 1 : 2)) {
        return kCallbackError;
    }
    for (unsigned int i = 0; i < len; ++i) {
        (mode == 1 ? cipher : plain)[i] = (mode == 1 ? plain : cipher)[i] ^ 0x55;
    }
    if (mode == 1) {
        std::memset(iv, 1, SDB_IV_LEN);
        std::memset(tag, 2, SDB_TAG_LEN);
    }
    return 0;
}

bool isListed(int status) {
    constexpr zelkm_result kListed[] = {ZELKM_OK,
                                        ZELKM_INVALID_ARGUMENT,
                                        ZELKM_MEMORY_ALLOCATION_FAILED,
                                        ZELKM_UNSUPPORTED_COLUMN_TYPE,
                                        ZELKM_UNKNOWN_COLUMN,
                                        ZELKM_SYNTAX_ERROR,
                                        ZELKM_MALFORMED_STORE,
                                        ZELKM_STALE_TABLE_HANDLE,
                                        ZELKM_PAYLOAD_TOO_LONG,
                                        ZELKM_NOTHING_DELETED};
    return status == kCallbackError ||
           std::find(std::begin(kListed), std::end(kListed), status) != std::end(kListed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    uint64_t handle = 0;
    uint64_t last_handle = 0;
    fuzz::Block stored = {};
    while (!input.empty()) {
        const uint8_t choice = input.byte();
        uint8_t behaviour = choice & 3;
        sdb_register_db_encrypt_fp(&behaviour, (choice & 4) != 0 ? callback : nullptr);
        if ((choice & 8) != 0) {
            handle = 0;
        }
        if ((choice & 16) != 0) {
            stored = input.block();
        }
        const fuzz::Block command = input.block();

        unsigned char untouched = 0;
        unsigned char* out = &untouched;
        unsigned int out_len = 77;
        const bool wants_result = (choice & 32) == 0;
        const int status =
            sdb_query(command.text(), command.len, stored.data.get(), stored.len,
                      wants_result ? &out : nullptr, wants_result ? &out_len : nullptr, &handle);
        fuzz::require(isListed(status));
        if (status != 0 || !wants_result) {
            fuzz::require(out == &untouched && out_len == 77);
        } else if (command.text()[0] == 'S') {
            fuzz::require(out_len >= 1 && out[out_len - 1] == '\0');
            std::free(out);
        } else {
            // The next load starts from what was stored.
            fuzz::require(out_len > 52 && std::memcmp(out, "SOBv1.1     ", 12) == 0);
            stored = {std::make_unique<uint8_t[]>(out_len), out_len};
            std::memcpy(stored.data.get(), out, out_len);
            std::free(out);
        }
        if (handle == 0) {
            continue;  // the load failed; the table, and its handle, stay
        }
        if (last_handle != 0 && handle != last_handle) {
            uint64_t stale = last_handle;
            fuzz::require(sdb_query("SELECT ()", 9, nullptr, 0, nullptr, nullptr, &stale) ==
                          ZELKM_STALE_TABLE_HANDLE);
        }
        last_handle = handle;
    }
    return 0;
}
