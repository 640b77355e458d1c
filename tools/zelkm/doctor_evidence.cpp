// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_evidence.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "bytes.h"
#include "disguise.h"
#include "failure.h"
#include "store_file.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

constexpr size_t kMaxKeyLen = 16 << 10;

// What a file is, and whether it may hold a store.
Disguise describe(std::string_view bytes) {
    if (isBlank(bytes)) {
        return {bytes.empty() ? "is empty" : "holds only zeros"};
    }
    if (looksLikeStore(bytes)) {
        const StoreHeader header = *parseStoreHeader(bytes);
        return {std::string("is a") + (header.encrypted() ? "n encrypted" : " plaintext") +
                    " store, " + std::to_string(header.row_count) + " rows by its header",
                true};
    }
    const Disguise disguise = disguiseOf(bytes, looksLikeStore);
    return disguise.words.empty() && isText(bytes) ? Disguise{"is text"} : disguise;
}

FileEvidence look(const Directory& directory, const std::string& name, const struct stat& status) {
    FileEvidence file = {status, std::nullopt, "", "", false};
    const std::vector<std::string> used = usedNames();
    const bool is_used = std::find(used.begin(), used.end(), name) != used.end();
    const bool is_root_key = name == kRootKeyFile || name == kAttestationRootFile;
    if ((S_ISREG(status.st_mode) || is_used) && !is_root_key) {
        try {
            file.content = directory.read(name);
        } catch (const Refused& refused) {
            file.problem = refused.what();
        }
    }
    if (file.content) {
        const Disguise shown = describe(*file.content);
        file.about = shown.words;
        file.may_hold_store = shown.may_hold_it;
        if (!is_used && file.content->size() > kMaxKeyLen && !looksLikeStore(*file.content)) {
            file.content.reset();  // nothing of this library
        }
    }
    return file;
}

// Whether the owner can make and rename files. Asked as another user, only the mode tells.
bool isWritable(const Directory& directory) {
    const struct stat status = directory.status();
    if (status.st_uid == ::geteuid()) {
        return ::faccessat(directory.fd(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    }
    return (status.st_mode & S_IWUSR) != 0 && (status.st_mode & S_IXUSR) != 0;
}

void lookBelow(const Directory& directory, const std::string& folder, Evidence* evidence) {
    try {
        const Directory below = directory.folder(folder);
        for (const std::string& name : below.names()) {
            const auto status = below.look(name);
            if (status && S_ISREG(status->st_mode)) {
                evidence->files[folder + "/" + name] = look(below, name, *status);
            }
        }
    } catch (const Refused& refused) {
        evidence->files[folder].problem = refused.what();
    }
}

}  // namespace

StoreFiles Evidence::storeFiles() const {
    StoreFiles result;
    for (const std::string& name : storeNames()) {
        if (const std::string* found = content(name)) {
            result[name] = *found;
        }
    }
    return result;
}

const std::string* Evidence::content(const std::string& name) const {
    const auto found = files.find(name);
    return found != files.end() && found->second.content ? &*found->second.content : nullptr;
}

std::string Evidence::unread() const {
    for (const std::string& name : storeNames()) {
        if (files.count(name) != 0 && content(name) == nullptr) {
            return name;
        }
    }
    return "";
}

Evidence collectEvidence(const Directory& directory) {
    Evidence evidence = {directory.path(), directory.status(), isWritable(directory), {}};
    for (const std::string& name : directory.names()) {
        const auto status = directory.look(name);
        if (!status) {
            continue;
        }
        evidence.files[name] = look(directory, name, *status);
        if (S_ISDIR(status->st_mode) && name.rfind(kCopiesPrefix, 0) != 0) {
            lookBelow(directory, name, &evidence);
        }
    }
    return evidence;
}

bool looksLikeStore(std::string_view bytes) {
    const auto header = parseStoreHeader(bytes);
    return header && header->magic.rfind("SOBv1.", 0) == 0 && header->payload_len != 0 &&
           header->payload_len == bytes.size() - zelkm::kHeaderLen;
}

bool isBlank(std::string_view bytes) {
    return bytes.find_first_not_of('\0') == bytes.npos;
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

}  // namespace zelkm_tool
