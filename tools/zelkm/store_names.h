// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Names of the files in a store directory: the library's, and those that this tool adds.

#pragma once

#include <file_names.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace zelkm_tool {

using zelkm::kBackupSuffix;
using zelkm::kErrorFiles;
using zelkm::kKeyDigestFile;
using zelkm::kKeyFile;
using zelkm::kStoreFile;
using zelkm::kTemporarySuffix;

inline bool isErrorFile(const std::string& name) {
    return std::find(std::begin(kErrorFiles), std::end(kErrorFiles), name) != std::end(kErrorFiles);
}

inline constexpr char kRefusedFile[] = "secure_objects.db.refused";
inline constexpr char kRootKeyFile[] = "soft_keymaster_root.key";
inline constexpr char kAttestationRootFile[] = "soft_keymaster_root.key.attest";

// The names under which a version of such a file can lie: the current one, ".tmp" and ".bak".
inline std::vector<std::string> versionsOf(const std::string& name) {
    return {name, name + kTemporarySuffix, name + kBackupSuffix};
}

// The versions of the store, of its key and of the digest.
inline std::vector<std::string> storeNames() {
    std::vector<std::string> names;
    for (const char* base : zelkm::kReplacedFiles) {
        for (const std::string& name : versionsOf(base)) {
            names.push_back(name);
        }
    }
    return names;
}

// All names that the library or this tool opens in a store directory.
inline std::vector<std::string> usedNames() {
    std::vector<std::string> names = storeNames();
    names.insert(names.end(), {kRefusedFile, kRootKeyFile, kAttestationRootFile});
    names.insert(names.end(), std::begin(kErrorFiles), std::end(kErrorFiles));
    return names;
}

}  // namespace zelkm_tool
