// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "store_service.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zeld {
namespace {

constexpr char kStore[] = "secure_objects.db";
constexpr char kBackup[] = "secure_objects.db.bak";
constexpr char kKey[] = "edbk";
constexpr char kKeyDigest[] = "edbk_digest";

// The header of a store: docs/store-format.md.
constexpr size_t kFlagsOffset = 12;
constexpr size_t kTagOffset = 16;
constexpr size_t kTagSize = 16;
constexpr size_t kRowCountOffset = 44;
constexpr size_t kPayloadLenOffset = 48;
constexpr size_t kHeaderSize = 52;

// A larger store takes no more. This is half of what the transport to the keymaster takes, so that
// two calls fit: docs/keymaster.md.
constexpr size_t kMaxStoreSize = 500 * 1000;
constexpr size_t kMaxAlias = 64;
constexpr size_t kMaxAccessors = 1000;

enum class Read { kDone, kMissing, kFailed };

Read readFile(const std::string& name, std::string* content) {
    content->clear();
    std::FILE* const file = std::fopen(name.c_str(), "re");
    if (file == nullptr) {
        return errno == ENOENT ? Read::kMissing : Read::kFailed;
    }
    char piece[4096];
    size_t count = sizeof(piece);
    while (count == sizeof(piece)) {  // fewer at the end, or when reading fails
        count = std::fread(piece, 1, sizeof(piece), file);
        content->append(piece, count);
    }
    const bool has_failed = std::ferror(file) != 0;
    std::fclose(file);
    return has_failed ? Read::kFailed : Read::kDone;
}

bool exists(const std::string& name) {
    return access(name.c_str(), F_OK) == 0;
}

void flushDirectory() {
    const int directory = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory);
        close(directory);
    }
}

// Gives a file its earlier content back, if it has another one now.
void putBack(const std::string& name, const std::string& content) {
    std::string present;
    if (readFile(name, &present) == Read::kDone && present == content) {
        return;
    }
    const std::string fresh = name + ".put";
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool is_written =
        file >= 0 &&
        ::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
        fsync(file) == 0;
    if (file >= 0) {
        close(file);
    }
    if (is_written && rename(fresh.c_str(), name.c_str()) == 0) {
        flushDirectory();
    }
}

size_t integerAt(const std::string& store, size_t offset) {
    size_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(store[offset + i]);
    }
    return value;
}

bool isWholeStore(const std::string& store) {
    return store.size() >= kHeaderSize &&
           store.size() == kHeaderSize + integerAt(store, kPayloadLenOffset);
}

// Whether the payload is plaintext, although it is marked as encrypted. This is what the library
// writes when the keymaster's answer to `update` or `finish` is lost; its result is then 0. The tag
// then never came.
bool isPlaintext(const std::string& store) {
    return isWholeStore(store) && (integerAt(store, kFlagsOffset) & 1) != 0 &&
           store.compare(kTagOffset, kTagSize, std::string(kTagSize, '\0')) == 0;
}

// Finishes a replacement that a power cut has interrupted between its two renames. The new version
// was flushed before the first of them: see protected_file.h.
void finishReplacement(const std::string& name, bool is_new_whole) {
    if (!exists(name) &&
        rename((name + (is_new_whole ? ".tmp" : ".bak")).c_str(), name.c_str()) == 0) {
        flushDirectory();
    }
}

void finishReplacements() {
    std::string fresh;
    finishReplacement(kStore, readFile(std::string(kStore) + ".tmp", &fresh) == Read::kDone &&
                                  isWholeStore(fresh));
    if (exists(kStore)) {  // so there was a key
        finishReplacement(kKey, exists(std::string(kKey) + ".tmp"));
    }
}

// Removes a digest that is not that of the key. With it the library would take the key for damaged
// when the keymaster refuses it once, and would replace it.
void removeWrongDigest(const std::string& key) {
    uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const uint8_t*>(key.data()), key.size(), digest);
    std::string stored;
    readFile(kKeyDigest, &stored);
    if (stored != std::string(reinterpret_cast<const char*>(digest), sizeof(digest))) {
        unlink(kKeyDigest);
    }
}

// The library checks no value. These characters are safe in a command, in a row and in a log.
bool isSafe(const std::string& value, size_t max_size, const char* also) {
    return !value.empty() && value.size() <= max_size && value.front() != ',' &&
           value.find_first_not_of(std::string("abcdefghijklmnopqrstuvwxyz"
                                               "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-") +
                                   also) == std::string::npos;
}

bool isAlias(const std::string& value) {
    return isSafe(value, kMaxAlias, "");
}

// A list of patterns: docs/data.md.
bool isAccessors(const std::string& value) {
    return isSafe(value, kMaxAccessors, ",[]*#");
}

}  // namespace

StoreService::StoreService(Keymaster& keymaster, std::function<void(const char* why)> end)
    : keymaster_(keymaster), end_(std::move(end)) {}

int StoreService::start() {
    const std::lock_guard<std::mutex> lock(mutex_);
    finishReplacements();
    std::string store, backup, key;
    Read read = readFile(kStore, &store);
    if (read == Read::kDone && isPlaintext(store)) {  // the process ended before checkWritten()
        static_cast<void>(ZelKeymasterOperation::restoreBackupDB());
        read = readFile(kStore, &store);
    }
    const bool is_new = read == Read::kMissing;
    if (!is_new) {
        // Without its key the library would make a new one, and lose the store.
        if (read != Read::kDone || !isWholeStore(store) || readFile(kKey, &key) != Read::kDone ||
            key.empty()) {
            return failed(ZELKM_UNKNOWN_ERROR, "the store or its key is not whole, or unreadable");
        }
        removeWrongDigest(key);
    }
    const Read backup_read = readFile(kBackup, &backup);

    object_ = std::make_unique<ZelKeymasterOperation>(&keymaster_, /*enableSecureDb=*/true);
    store_size_ = store.size();
    SODOperationParam all;
    std::vector<std::string> names;
    int status = object_->SodRetreiveAlias(all, names);
    // An object that could not read the file starts with an empty store, without an error. Its next
    // change would replace the file.
    if (status == ZELKM_OK && names.size() != (is_new ? 0 : integerAt(store, kRowCountOffset))) {
        status = ZELKM_UNKNOWN_ERROR;
    }
    if (status == ZELKM_OK) {
        return ZELKM_OK;
    }
    // The library has perhaps put the backup in place of the store, or removed both. If it could
    // not read the key, it has made a new one.
    if (!is_new) {
        putBack(kStore, store);
        putBack(kKey, key);
    }
    if (backup_read == Read::kDone) {
        putBack(kBackup, backup);
    }
    return failed(status, "the store cannot be read");
}

int StoreService::insert(uint32_t caller, const std::string& alias, const std::string& accessors) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isAccessors(accessors)) {
        return kBadValue;
    }
    const int found = find(caller, alias);
    if (found != kNotFound) {
        return found;
    }
    return store_size_ > kMaxStoreSize ? kFull : write(caller, alias, accessors);
}

int StoreService::update(uint32_t caller, const std::string& alias, const std::string& accessors) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isAccessors(accessors)) {
        return kBadValue;
    }
    const int found = find(caller, alias);
    if (found != kExists) {
        return found;
    }
    if (store_size_ > kMaxStoreSize) {
        return kFull;
    }
    // The library refuses UPDATE. Without an encryption callback a command changes only the table
    // in memory; the insertion then writes both changes at once. A process that ends in between has
    // changed nothing.
    const std::string text = "DELETE WHERE ALIAS=\x1f" + alias + "\x1f AND CREATOR_UID=\x1f" +
                             std::to_string(caller) + "\x1f";
    const keymaster_blob_t command = {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
    keymaster_blob_t plain = {};
    const int status = object_->queryInternal(nullptr, nullptr, nullptr, nullptr, &command, &plain);
    auto* const image = const_cast<uint8_t*>(plain.data);  // the whole store, not encrypted
    if (image != nullptr) {
        OPENSSL_cleanse(image, plain.data_length);
        std::free(image);
    }
    return status == ZELKM_OK ? write(caller, alias, accessors)
                              : failed(status, "the table in memory cannot be changed");
}

int StoreService::remove(uint32_t caller, const std::string& alias) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int found = find(caller, alias);
    if (found != kExists) {
        return found;
    }
    std::string name = alias, uid = std::to_string(caller);
    SODOperationParam param;
    param.addAliasInWhere(name).addCreatorUidInWhere(uid);
    return checkWritten(object_->SodDelete(param));
}

int StoreService::usable(uint32_t caller, std::vector<std::string>* names) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (object_ == nullptr) {
        return ZELKM_UNKNOWN_ERROR;
    }
    std::string uid = std::to_string(caller);
    SODOperationParam param;
    param.addAccessorInWhere(uid);
    const int status = object_->SodRetreiveAlias(param, *names);
    return status == ZELKM_OK ? status : failed(status, "the store cannot be read");
}

// Whether the caller has made an object with this alias: kExists, kNotFound, or what is wrong.
int StoreService::find(uint32_t caller, const std::string& alias) {
    if (object_ == nullptr) {
        return ZELKM_UNKNOWN_ERROR;
    }
    if (!isAlias(alias)) {
        return kBadValue;
    }
    std::string name = alias, uid = std::to_string(caller);
    SODOperationParam param;
    param.addAliasInWhere(name).addCreatorUidInWhere(uid);
    std::vector<std::string> found;
    const int status = object_->SodRetreiveAlias(param, found);
    if (status != ZELKM_OK) {
        return failed(status, "the store cannot be read");
    }
    return found.empty() ? kNotFound : kExists;
}

int StoreService::write(uint32_t caller, const std::string& alias, const std::string& accessors) {
    std::string uid = std::to_string(caller), name = alias, list = accessors;
    SODOperationParam param;
    param.setAlias(name).setCreator(uid).setAccessor(list).setCreatorUid(uid);
    return checkWritten(object_->SodInsert(param));
}

int StoreService::checkWritten(int status) {
    if (status != ZELKM_OK) {
        return failed(status, "a change failed");
    }
    std::string store;
    if (readFile(kStore, &store) != Read::kDone || !isWholeStore(store)) {
        return failed(ZELKM_UNKNOWN_ERROR, "the store that was written is not whole");
    }
    if (isPlaintext(store)) {
        // The backup is the version before this change. Another change would remove it.
        static_cast<void>(ZelKeymasterOperation::restoreBackupDB());
        return failed(ZELKM_UNKNOWN_ERROR,
                      "the keymaster's reply was lost, and objects were on the disk as plaintext; "
                      "the version before is in place again");
    }
    store_size_ = store.size();
    return ZELKM_OK;
}

// The object is of no more use: its memory may differ from the files.
int StoreService::failed(int status, const char* why) {
    object_ = nullptr;
    end_(why);
    return status;
}

}  // namespace zeld
