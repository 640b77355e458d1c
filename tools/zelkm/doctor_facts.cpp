// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_facts.h"

#include <algorithm>

#include "bytes.h"
#include "failure.h"
#include "session.h"

namespace zelkm_tool {
namespace {

bool isContentWanted(const std::string& name) {
    const std::vector<std::string> used = usedNames();
    return name != kRootKeyFile && name != kAttestationRootFile && name != kRefusedFile &&
           std::find(used.begin(), used.end(), name) != used.end();
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

FileFacts factsOf(const Directory& directory, const std::string& name, const struct stat& status) {
    FileFacts facts = {status, std::nullopt, ""};
    if (isContentWanted(name)) {
        try {
            facts.content = directory.read(name);
        } catch (const Refused& refused) {
            facts.problem = refused.what();
        }
    }
    return facts;
}

}  // namespace

StoreFiles Facts::storeFiles() const {
    StoreFiles result;
    for (const std::string& name : storeNames()) {
        const auto found = files.find(name);
        if (found != files.end() && found->second.content) {
            result[name] = *found->second.content;
        }
    }
    return result;
}

std::string Facts::unread() const {
    for (const std::string& name : storeNames()) {
        const auto found = files.find(name);
        if (found != files.end() && !found->second.content) {
            return name;
        }
    }
    return "";
}

Facts collectFacts(const Directory& directory) {
    Facts facts = {directory.path(), directory.status(), {}};
    for (const std::string& name : directory.names()) {
        if (const auto status = directory.look(name)) {
            facts.files[name] = factsOf(directory, name, *status);
        }
    }
    return facts;
}

std::string keyOfDigest(const StoreFiles& files) {
    const auto digest = files.find(kKeyDigestFile);
    for (const std::string& name : versionsOf(kKeyFile)) {
        const auto key = files.find(name);
        if (digest != files.end() && key != files.end() && !key->second.empty() &&
            digest->second == sha256(key->second)) {
            return name;
        }
    }
    return "";
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
