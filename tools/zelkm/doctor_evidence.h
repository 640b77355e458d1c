// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory and in its folders, for the doctor and for 'zelkm info'. It is
// read once and completely, and nothing is changed. All conclusions are then drawn in memory.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "directory.h"

namespace zelkm_tool {

// What a repair makes: files that it did not finish, and folders with copies.
inline constexpr char kLeftoverSuffix[] = ".doctor";
inline constexpr char kCopiesPrefix[] = "doctor-";

// The contents of the files of the store, the key and the digest, with their backups and temporary
// files, by name. Files that do not exist are left out.
using StoreFiles = std::map<std::string, std::string>;

struct FileEvidence {
    struct stat status;
    std::optional<std::string> content;  // of a regular file that could be read
    std::string problem;                 // why such a file could not be read
    std::string about;                   // what it is, as far as that shows without a key
    bool may_hold_store = false;         // it is a store, or an archive, or was encoded

    // Whether this is a regular file of a size that is read, and could not be read.
    bool isUnreadable() const {
        return S_ISREG(status.st_mode) && !problem.empty() &&
               static_cast<uint64_t>(status.st_size) <= kMaxFileLen;
    }
};

struct Evidence {
    std::string path;
    struct stat directory;
    bool writable;  // for the owner of the directory
    // Everything that is in the directory and one level below, by name ("folder/name").
    std::map<std::string, FileEvidence> files;

    StoreFiles storeFiles() const;

    // The content of this file; null when it is not there or was not read.
    const std::string* content(const std::string& name) const;

    // The name of a file of the store or its key that exists but could not be read; empty for none.
    std::string unread() const;
};

// Throws Refused when the directory cannot be read. A file that cannot be read is evidence.
Evidence collectEvidence(const Directory& directory);

// Whether these are the bytes of an encrypted or plaintext store that is complete by its header.
bool looksLikeStore(std::string_view bytes);

// Whether there is nothing but zeros, or nothing at all.
bool isBlank(std::string_view bytes);

// The key file whose SHA-256 the digest file holds; empty when there is none.
std::string keyOfDigest(const StoreFiles& files);

}  // namespace zelkm_tool
