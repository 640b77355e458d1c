// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "session.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "bytes.h"
#include "directory.h"
#include "failure.h"
#include "files.h"
#include "result_text.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyCharacteristics;

bool isThere(const std::string& file) {
    std::error_code ignored;
    return std::filesystem::exists(file, ignored);
}

// Refuses a directory whose store file is missing while its backup or its new version exists. An
// insertion would take the store for an empty one, and overwrite both.
void refuseInterruptedReplacement(const std::string& dir) {
    for (const char* suffix : {".bak", ".tmp"}) {
        const std::string left = std::string(kStoreFile) + suffix;
        if (isThere(left)) {
            throw Refused(dir + ": there is no " + kStoreFile + ", but " + left +
                          ": its replacement was interrupted; 'zelkm doctor' tells what is left of "
                          "it, and repairs it");
        }
    }
}

// Refuses an empty store file. To the library it is a store without objects, as if the file were
// missing.
void refuseEmptyStore(const std::string& dir, const std::string& image) {
    if (image.empty()) {
        throw Refused(dir + ": " + kStoreFile +
                      " is empty, as no store is; 'zelkm doctor' tells what is left of it, and "
                      "repairs it");
    }
}

// Refuses an encrypted store whose key or root key is missing. The library would replace a store
// that the keymaster cannot decrypt by its backup, or remove the store when there is no backup.
void refuseForeignStore(const std::string& dir, const std::string& image) {
    const std::optional<StoreHeader> header = parseStoreHeader(image);
    if (!header || !header->encrypted()) {
        return;
    }
    for (const char* needed : {kKeyFile, kRootKeyFile}) {
        if (!isThere(needed)) {
            throw Refused(dir + ": " + kStoreFile + " is encrypted, and " + needed +
                          " is missing: see 'zelkm doctor'");
        }
    }
}

// Refuses links, FIFOs and whatever else is no regular file. The library and the keymaster open
// files by name: they would follow a link, and wait for a FIFO.
void refuseOtherThanFiles(const Directory& directory) {
    for (const std::string& name : usedNames()) {
        [[maybe_unused]] const std::optional<Descriptor> file = directory.open(name);
    }
}

}  // namespace

std::vector<std::string> versionsOf(const std::string& name) {
    return {name, name + kTemporarySuffix, name + kBackupSuffix};
}

std::vector<std::string> usedNames() {
    std::vector<std::string> names = {kRefusedFile, kRootKeyFile, kAttestationRootFile};
    names.insert(names.end(), std::begin(kErrorFiles), std::end(kErrorFiles));
    for (const char* base : {kStoreFile, kKeyFile, kKeyDigestFile}) {
        for (const std::string& name : versionsOf(base)) {
            names.push_back(name);
        }
    }
    return names;
}

soft_keymaster::SoftKeymaster::Options keymasterOptions(const SessionOptions& options) {
    soft_keymaster::SoftKeymaster::Options result;
    result.root_key_path = kRootKeyFile;
    if (options.patch_level) {
        result.patch_level = *options.patch_level;
    }
    return result;
}

Session::Session(const SessionOptions& options, Use use)
    : options_(options),
      lock_(options, DirectoryLock::Mode::kExclusive),
      keymaster_(keymasterOptions(options)),
      uses_store_(use == Use::kStore) {
    const Directory directory(options.dir);
    if (::fchdir(directory.fd()) != 0) {
        throw Refused("directory " + options.dir + ": " + std::strerror(errno));
    }
    refuseOtherThanFiles(directory);
    had_root_key_ = isThere(kRootKeyFile);
    if (!uses_store_) {
        return;
    }
    image_ = directory.read(kStoreFile);
    if (image_) {
        refuseEmptyStore(options.dir, *image_);
        refuseForeignStore(options.dir, *image_);
    } else {
        refuseInterruptedReplacement(options.dir);
    }
    if (had_root_key_ && !options.upgrade) {
        refuseUpgrade();
    }
}

Session::~Session() {
    if (!had_root_key_ && isThere(kRootKeyFile)) {
        note(options_, "the keymaster is software and protects nothing; its new root key is " +
                           (std::filesystem::path(options_.dir) / kRootKeyFile).string());
    }
}

// Refuses to upgrade the key without --upgrade, because the older patch level cannot use the
// upgraded key.
void Session::refuseUpgrade() {
    const std::optional<std::string> key = Directory(".").read(kKeyFile);
    ErrorCode answer = ErrorCode::OK;
    if (key) {
        keymaster_.getKeyCharacteristics(
            toVec(*key), {}, {},
            [&](ErrorCode error, const KeyCharacteristics&) { answer = error; });
    }
    if (answer == ErrorCode::KEY_REQUIRES_UPGRADE) {
        throw Refused(std::string(kKeyFile) + " was made at an older patch level than " +
                      std::to_string(keymasterOptions(options_).patch_level) +
                      ": --upgrade lets the library upgrade it, and from then on it needs that "
                      "level ('zelkm info' shows the level)");
    }
}

ZelKeymasterOperation& Session::operation() {
    // The object lives as long as the process, as the library expects.
    static auto* const operation = new ZelKeymasterOperation(&keymaster_, uses_store_);
    return *operation;
}

void Session::checkStoreResult(int result, const std::string& what) {
    if (result == ZELKM_OK) {
        check(result, what);
        return;
    }
    std::string message = failureText(result, what);
    if (result == ZELKM_INVALID_KEY_BLOB) {
        message += "; was it made under another root key, or is it of a newer --patch-level?";
    }
    if (result == ZELKM_VERIFICATION_FAILED && image_) {
        if (!isThere(kStoreFile)) {
            check(ZelKeymasterOperation::update_file(
                      kStoreFile, reinterpret_cast<const uint8_t*>(image_->data()),
                      static_cast<uint32_t>(image_->size())),
                  kStoreFile);
            message += "; there is no backup, and the store is as it was";
        } else if (Directory(".").read(kStoreFile) != image_) {
            writeOutput(kRefusedFile, *image_, Access::kOwnerOnly);
            message += std::string("; the library put the backup in place, so try again; ") +
                       "what it refused is " + kRefusedFile;
        }
    }
    throw Refused(message);
}

}  // namespace zelkm_tool
