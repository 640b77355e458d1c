// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "session.h"

#include <android/log.h>
#include <sod_command_text.h>
#include <unistd.h>
#include <velt_secure_db.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <new>
#include <tuple>
#include <utility>

#include "bytes.h"
#include "failure.h"
#include "files.h"
#include "key_trial.h"

namespace zelkm_tool {
namespace {

constexpr char kQuote = 0x1F;
constexpr uint8_t kSeparator = 0x1E;  // of values in what the engine returns

// What all calls to a keymaster in another process share: 1 MiB less two pages. A change sends the
// whole store in one call.
constexpr uint64_t kTransportLen = (1 << 20) - 2 * 4096;

// Refuses a directory in which others could put a link in place of a file. The library opens files
// by name, and follows it.
void refuseOtherWriters(const Directory& directory) {
    const struct stat status = directory.status();
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        throw Refused(
            directory.path() + " belongs to another user (" + std::to_string(status.st_uid) +
            "): only that user and root can work on it; 'zelkm info' shows what is there");
    }
    if (const std::string who = otherWriters(status); !who.empty()) {
        throw Refused(
            directory.path() + ": " + who +
            " may change it, and could redirect this tool to other files; use 'chmod go-w'");
    }
}

// Refuses links, FIFOs and whatever else is no regular file. The library and the keymaster open
// files by name: they would follow a link, and wait for a FIFO.
void refuseOtherThanFiles(const Directory& directory) {
    for (const std::string& name : usedNames()) {
        [[maybe_unused]] const std::optional<Descriptor> file = directory.open(name);
    }
}

// The options of the software keymaster for the store in a directory. It works at the level of the
// store's key if that is newer than its own, unless the options name a level.
soft_keymaster::SoftKeymaster::Options keymasterOptions(const SessionOptions& options,
                                                        const Directory& directory) {
    soft_keymaster::SoftKeymaster::Options result;
    result.root_key_path = kRootKeyFile;
    result.patch_level =
        options.patch_level.value_or(std::max(result.patch_level, keyLevel(directory).value_or(0)));
    return result;
}

}  // namespace

Session::Session(const SessionOptions& options, Use use)
    : options_(options),
      directory_(options.dir),
      lock_(directory_, options, DirectoryLock::Mode::kExclusive),
      keymaster_(keymasterOptions(options, directory_)),
      uses_store_(use == Use::kStore) {
    refuseOtherWriters(directory_);
    if (::fchdir(directory_.fd()) != 0) {
        throw Refused("directory " + options.dir + ": " + std::strerror(errno));
    }
    refuseOtherThanFiles(directory_);
    had_root_key_ = isThere(kRootKeyFile);
    if (!uses_store_) {
        return;
    }
    readStore();
    key_ = directory_.read(kKeyFile);
    image_ ? refuseUnreadableStore() : refuseInterruptedReplacement();
    if (had_root_key_ && !options.upgrade) {
        refuseUpgrade();
    }
}

Session::~Session() {
    std::error_code ignored;
    if (!had_root_key_ && std::filesystem::exists(kRootKeyFile, ignored)) {
        note(options_, "the keymaster is software and protects nothing; its new root key is " +
                           (std::filesystem::path(options_.dir) / kRootKeyFile).string());
    }
}

void Session::readStore() {
    image_status_ = directory_.look(kStoreFile);
    image_ = directory_.read(kStoreFile);
}

// Refuses a directory whose store file is missing while its backup or its new version exists. An
// insertion would take the store for an empty one, and overwrite both. A first version that was not
// written to its end holds nothing.
void Session::refuseInterruptedReplacement() const {
    std::string left = std::string(kStoreFile) + kBackupSuffix;
    if (!isThere(left)) {
        left = std::string(kStoreFile) + kTemporarySuffix;
        if (!wholeStoreHeader(directory_.read(left).value_or(""))) {
            return;
        }
    }
    throw Refused(options_.dir + ": there is no " + kStoreFile + ", but " + left +
                  ": its replacement was interrupted; 'zelkm doctor' diagnoses and repairs it");
}

// Refuses an empty store file: to the library it is a store without objects, as if the file were
// missing. Refuses an encrypted store whose key or root key is missing: the library would replace a
// store that the keymaster cannot decrypt by its backup, or remove it when there is no backup.
void Session::refuseUnreadableStore() const {
    if (image_->empty()) {
        throw Refused(options_.dir + ": " + kStoreFile +
                      " is empty, which no store ever is; 'zelkm doctor' diagnoses and repairs it");
    }
    const std::optional<StoreHeader> header = parseStoreHeader(*image_);
    if (!header || !header->encrypted()) {
        return;
    }
    const char* missing = !key_ || key_->empty() ? kKeyFile
                          : !had_root_key_       ? kRootKeyFile
                                                 : nullptr;
    if (missing != nullptr) {
        throw Refused(options_.dir + ": " + kStoreFile + " is encrypted, and " + missing +
                      " is missing: see 'zelkm doctor'");
    }
}

// Refuses to upgrade the key without --upgrade, because the older patch level cannot use the
// upgraded key.
void Session::refuseUpgrade() {
    if (key_ && keyStatus(keymaster_, *key_) == ZELKM_KEY_REQUIRES_UPGRADE) {
        throw Refused(std::string(kKeyFile) + " was made at an older patch level than " +
                      std::to_string(keymasterOptions(options_, directory_).patch_level) +
                      ": --upgrade lets the library upgrade it, irreversibly: pass the new level "
                      "afterwards ('zelkm info' shows the level)");
    }
}

size_t Session::numObjects() {
    operation();
    return num_objects_;
}

ZelKeymasterOperation& Session::operation() {
    // The object lives as long as the process, as the library expects.
    static ZelKeymasterOperation* operation = nullptr;
    if (operation == nullptr) {
        operation = new ZelKeymasterOperation(&keymaster_, uses_store_);
        if (uses_store_ && key_ && !key_->empty()) {
            giveKey(operation);
        }
        if (image_) {
            giveStore();
        }
    }
    return *operation;
}

// A key that the keymaster refuses is left to the library, which tells why, unless it would then
// replace the key.
void Session::giveKey(ZelKeymasterOperation* operation) {
    const int status = keyStatus(keymaster_, *key_);
    if (status != ZELKM_OK && status != ZELKM_KEY_REQUIRES_UPGRADE) {
        const std::optional<std::string> digest = directory_.read(kKeyDigestFile);
        if (digest && *digest != sha256(*key_)) {
            checkStoreResult(
                status, std::string(kKeyFile) + " is damaged, as " + kKeyDigestFile + " shows");
        }
        return;
    }
    // The object's from now on, unless it takes an upgraded key instead. After a failure it may be.
    zelkm::MallocBuffer key = zelkm::allocateBuffer(key_->size());
    if (key == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(key.get(), key_->data(), key_->size());
    const int result = operation->setLoadedDBKey(key.get(), static_cast<uint32_t>(key_->size()));
    if (result != ZELKM_KEY_REQUIRES_UPGRADE) {
        static_cast<void>(key.release());
        checkStoreResult(result, kKeyFile);
    }
}

// The engine loads the table from the session's image. The library's next commands work on that
// table, whatever the object could read.
void Session::giveStore() {
    const int level = __android_log_get_minimum_priority();
    __android_log_set_minimum_priority(std::max<int>(level, ANDROID_LOG_WARN));
    EngineOutput output = query("SELECT ()");
    __android_log_set_minimum_priority(level);
    num_objects_ = checkRead(std::move(output)).len - 1;  // a line feed for each, and a NUL
    if (const auto header = parseStoreHeader(*image_); header->row_count != num_objects_) {
        throw Refused(options_.dir + ": " + kStoreFile + " has " + std::to_string(num_objects_) +
                      " objects, and its header says " + std::to_string(header->row_count) +
                      ": see 'zelkm doctor'");
    }
}

EngineOutput Session::query(std::string_view command) {
    const auto blob = [](std::string_view bytes) {
        return keymaster_blob_t{reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
    };
    const keymaster_blob_t stored = blob(image_ ? std::string_view(*image_) : "");
    const keymaster_blob_t text = blob(command);
    keymaster_blob_t result = {};
    const int status =
        operation().queryInternal(nullptr, &operation(), DBEncryptCB, &stored, &text, &result);
    return {status, zelkm::MallocBuffer(const_cast<uint8_t*>(result.data)), result.data_length};
}

EngineOutput Session::checkRead(EngineOutput output) {
    checkStoreResult(output.status, "reading the store");
    if (output.data == nullptr) {
        throw std::bad_alloc();
    }
    return output;
}

void Session::change(const std::string& what, size_t num_objects,
                     const std::function<int()>& make) {
    operation();
    const std::optional<struct stat> now = directory_.look(kStoreFile);
    const auto identity = [](const std::optional<struct stat>& status) {
        return status ? std::make_tuple(status->st_ino, status->st_size, status->st_mtim.tv_sec,
                                        status->st_mtim.tv_nsec)
                      : std::make_tuple(ino_t(), off_t(), time_t(), long());
    };
    if (identity(now) != identity(image_status_)) {
        throw Refused(what + ": nothing was done: another program has changed " + kStoreFile);
    }
    checkStoreResult(make(), what);
    readStore();
    const std::optional<StoreHeader> header = wholeStoreHeader(image_.value_or(""));
    if (!header || header->row_count != num_objects) {
        throw Refused(what + ": what was written is not a store of " + std::to_string(num_objects) +
                      " objects: see 'zelkm doctor'");
    }
    num_objects_ = num_objects;
}

void Session::replaceStore(const std::string& what, size_t num_objects, EngineOutput store) {
    change(what, num_objects, [&] {
        const int result =
            operation().update_db_file(store.data.get(), static_cast<uint32_t>(store.len));
        if (result == ZELKM_OK) {
            static_cast<void>(store.data.release());  // the object's now
        }
        return result;
    });
}

void Session::checkStoreResult(int result, const std::string& what) {
    if (result == ZELKM_OK) {
        check(result, what);
        return;
    }
    std::string message = failureText(result, what);
    if (result == ZELKM_INVALID_KEY_BLOB) {
        message += "; was it made with another root key, or at a newer --patch-level?";
    }
    if (result == ZELKM_VERIFICATION_FAILED && image_) {
        if (!isThere(kStoreFile)) {
            check(ZelKeymasterOperation::update_file(
                      kStoreFile, reinterpret_cast<const uint8_t*>(image_->data()),
                      static_cast<uint32_t>(image_->size())),
                  kStoreFile);
            message += "; there is no backup, and the store is as it was";
        } else if (directory_.read(kStoreFile) != image_) {
            FreshFiles refused;
            refused.add(kRefusedFile, Access::kOwnerOnly) = *image_;
            refused.commit();
            message += std::string("; the library put the backup in place, so try again; ") +
                       "what it refused is " + kRefusedFile;
        }
    }
    throw Refused(message);
}

std::vector<Condition> parseConditions(const std::vector<std::string>& texts, bool careless,
                                       bool star_is_careless) {
    std::vector<Condition> conditions;
    std::transform(texts.begin(), texts.end(), std::back_inserter(conditions), parseCondition);
    checkConditions(conditions, careless, star_is_careless);
    return conditions;
}

SODOperationParam paramWith(const std::vector<Condition>& conditions) {
    SODOperationParam param;
    for (const Condition& condition : conditions) {
        // The library writes "=" after the column name. With a '<' or '>' at the end of the name,
        // that makes "<=" or ">=". These match no object, as "<" and ">" would.
        std::string column =
            condition.column + (condition.op == "=" ? "" : condition.op.substr(0, 1));
        std::string value = condition.value;
        param.addWhere(column, value);
    }
    return param;
}

SODOperationParam paramOf(const Row& object) {
    SODOperationParam param;
    for (size_t i = 0; i < object.size(); ++i) {
        if (!object[i].empty()) {
            std::string column(kColumnNames[i]);
            std::string value = kQuote + object[i] + kQuote;
            param.setColumn(column, value);
        }
    }
    return param;
}

// The engine's own text: the library would cut it at every line feed, which a value may hold.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions,
                        const std::vector<std::string>& columns) {
    if (!session.image()) {
        return {};
    }
    const size_t num_objects = session.numObjects();
    SODOperationParam param = paramWith(conditions);
    for (std::string column : columns) {
        param.addOutputFormat(column);
    }
    const zelkm::CommandText command = zelkm::selectCommand(param);
    const EngineOutput output = session.checkRead(session.query(command.view()));
    StoreRows found = readRows(output.text(), kSeparator, columns.size(), SIZE_MAX);
    if (!found.whole) {
        throw Refused(
            "a stored value holds the byte 0x1e, so that values cannot be separated; "
            "see the rows with: zelkm query 'SELECT (ALIAS)'");
    }
    if (conditions.empty() && found.rows.size() != num_objects) {
        throw Refused("reading the store: not all objects were read");
    }
    return std::move(found.rows);
}

std::string nameOf(const Row& object) {
    return object[1] + kBetween + object[0];
}

std::vector<size_t> findNamed(const std::vector<Row>& objects, const std::string& name) {
    std::vector<size_t> found;
    for (const bool escaped : {false, true}) {
        for (size_t i = 0; i < objects.size(); ++i) {
            const std::string each = nameOf(objects[i]);
            if (name == (escaped ? escape(each) : each)) {
                found.push_back(i);
            }
        }
        if (!found.empty()) {
            return found;
        }
    }
    throw Refused("no object " + escape(name) +
                  "; CREATOR::ALIAS is expected, as 'zelkm aliases' shows it");
}

void storeObjects(Session& session, const std::vector<Row>& objects, const std::string& what) {
    ZelKeymasterOperation& operation = session.operation();
    // The engine loads all objects but the last one from a plaintext. With that one it makes the
    // new store. It has then left the table of the library, which reads the new store itself before
    // its next command.
    const std::string others = plainStore({objects.begin(), objects.end() - 1});
    SODOperationParam last = paramOf(objects.back());
    const zelkm::CommandText command = zelkm::insertCommand(last);
    checkStoreLen(session.options(), plainStore(objects).size());
    sdb_register_db_encrypt_fp(&operation, DBEncryptCB);
    EngineOutput store = runEngine(command.view(), others);
    session.checkStoreResult(store.status, what);
    session.replaceStore(what, objects.size(), std::move(store));
}

void checkStoreLen(const SessionOptions& options, uint64_t len) {
    if (len > kMaxFileLen) {
        throw Refused("nothing was stored: the store would have " + std::to_string(len) +
                      " bytes, but none larger than " + std::to_string(kMaxFileLen) + " is read");
    }
    if (len >= kTransportLen / 2) {
        note(options, "the store has " + std::to_string(len) + " bytes; on a device all calls to " +
                          "the keymaster share " + std::to_string(kTransportLen) +
                          ", and a store that is too large is lost");
    }
}

}  // namespace zelkm_tool
