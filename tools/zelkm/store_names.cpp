// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_names.h"

#include <algorithm>
#include <iterator>

namespace zelkm_tool {

bool isErrorFile(const std::string& name) {
    return std::find(std::begin(kErrorFiles), std::end(kErrorFiles), name) != std::end(kErrorFiles);
}

std::vector<std::string> versionsOf(const std::string& name) {
    return {name, name + kTemporarySuffix, name + kBackupSuffix};
}

std::vector<std::string> storeNames() {
    std::vector<std::string> names;
    for (const char* base : {kStoreFile, kKeyFile, kKeyDigestFile}) {
        for (const std::string& name : versionsOf(base)) {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<std::string> usedNames() {
    std::vector<std::string> names = storeNames();
    names.insert(names.end(), {kRefusedFile, kRootKeyFile, kAttestationRootFile});
    names.insert(names.end(), std::begin(kErrorFiles), std::end(kErrorFiles));
    return names;
}

}  // namespace zelkm_tool
