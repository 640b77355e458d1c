// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A store blob that loads holds the same rows when it is exported and loaded again.

#include <string>

#include "fuzz.h"
#include "velt_secure_db.h"

namespace {

constexpr char kAll[] = "SELECT (ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID,PRIV_ACC)";
constexpr char kInsert[] = "INSERT (ALIAS) VALUE (last)";
constexpr char kLastRow[] = "last\x1e\x1e\x1e\x1e\x1e\x1e\n";

// Runs a command and returns its result, or "" when it fails.
std::string query(const char* command, const void* blob, size_t len, uint64_t* handle) {
    unsigned char* out = nullptr;
    unsigned int out_len = 0;
    std::string result;
    if (sdb_query(command, static_cast<unsigned int>(std::strlen(command)),
                  static_cast<const unsigned char*>(blob), static_cast<unsigned int>(len), &out,
                  &out_len, handle) == 0) {
        result.assign(reinterpret_cast<char*>(out), out_len);
        std::free(out);
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz::Block blob = fuzz::Input(data, size).rest();
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    uint64_t handle = 0;
    query(kAll, nullptr, 0, &handle);  // a blob without payload would keep the rows of the last run
    handle = 0;
    const std::string rows = query(kAll, blob.data.get(), blob.len, &handle);
    if (rows.empty()) {
        return 0;
    }
    const std::string exported = query(kInsert, nullptr, 0, &handle);
    fuzz::require(exported.size() > 52);
    uint64_t again = 0;
    const std::string reloaded = query(kAll, exported.data(), exported.size(), &again);

    // A value of version 1.0 may hold the separator of version 1.1. Such a store does not survive.
    // All others do.
    const bool is_v10 = blob.len >= 12 && std::memcmp(blob.data.get(), "SOBv1.0     ", 12) == 0;
    if (!is_v10) {
        fuzz::require(reloaded == rows.substr(0, rows.size() - 1) + kLastRow + '\0');
    }
    return 0;
}
