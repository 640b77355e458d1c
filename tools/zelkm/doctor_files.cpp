// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The files of a store directory. See doctor_files.h.

#include "doctor_files.h"

#include "files.h"
#include "session.h"

namespace zelkm_tool {

StoreFiles readStoreFiles(const std::string& dir) {
    StoreFiles files;
    for (const char* base : {kStoreFile, kKeyFile, kKeyDigestFile}) {
        for (const char* suffix : {"", kBackupSuffix, kTemporarySuffix}) {
            const std::string name = std::string(base) + suffix;
            if (auto content = readFileIfThere(dir + "/" + name)) {
                files[name] = *std::move(content);
            }
        }
    }
    return files;
}

StoreFiles applied(StoreFiles files, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        if (change.content) {
            files[change.file] = *change.content;
        } else {
            files.erase(change.file);
        }
    }
    return files;
}

}  // namespace zelkm_tool
