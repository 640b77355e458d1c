// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The operation object: the order of its steps, and the message of each failure.
// docs/architecture.md says where the rest is.

#include "zelkeymaster_operation.h"

#include <errno.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "error_file.h"
#include "file_names.h"
#include "gcm_operation.h"
#include "keymaster_params.h"
#include "malloc_buffer.h"
#include "openssl_handles.h"
#include "password_conversion.h"
#include "platform_log.h"
#include "protected_file.h"
#include "run_no_throw.h"
#include "sod_command_text.h"
#include "text_pieces.h"
#include "velt_secure_db.h"
#include "zelkeymaster_operation_internal.h"

#define LOG_ERROR(...)                                                       \
    (ZELKM_PLATFORM_LOG(ANDROID_LOG_ERROR, ZELKM_ERROR_PREFIX, __VA_ARGS__), \
     ::log_to_file('E', __FILE__, __LINE__, __VA_ARGS__))
#define LOG_WARNING(...)                                                      \
    (ZELKM_PLATFORM_LOG(ANDROID_LOG_WARN, ZELKM_WARNING_PREFIX, __VA_ARGS__), \
     ::log_to_file('W', __FILE__, __LINE__, __VA_ARGS__))
#define LOG_DEBUG(...) ZELKM_PLATFORM_LOG(ANDROID_LOG_DEBUG, ZELKM_DEBUG_PREFIX, __VA_ARGS__)

using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::HardwareAuthToken;
using android::hardware::keymaster::V4_0::KeyCharacteristics;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::KeyPurpose;
using android::hardware::keymaster::V4_0::VerificationToken;
using android::hardware::keymaster::V4_0::support::Keymaster;

using namespace zelkm;

namespace {

// For whoever has the library's file only; no code reads it.
__attribute__((used)) const char kVersion[] = "libzelkeymaster " ZELKEYMASTER_VERSION;

constexpr size_t kMaxErrorFileText = 1023;  // with its NUL
constexpr char kRowSeparator = '\n';
constexpr char kFieldSeparator = 0x1E;

constexpr size_t kMinChainLen = 3;

// The handle of the table that the engine loaded last; 0 makes the engine load it again. The engine
// keeps a copy, ObjectTable::handle(), and uses its table only while both are equal.
uint64_t g_table_handle;

// Frees the buffer that `owned` holds, and stores `buffer` there.
void adopt(uint8_t** owned, uint8_t* buffer) {
    if (*owned != buffer) {
        std::free(*owned);
        *owned = buffer;
    }
}

bool sameBytes(const uint8_t* a, size_t a_len, const uint8_t* b, size_t b_len) {
    return a_len == b_len && (a_len == 0 || std::memcmp(a, b, a_len) == 0);
}

// Calls load_data() for an owned buffer.
int loadFile(const char* path, MallocBuffer* data, uint32_t* len) {
    uint8_t* loaded = nullptr;
    *len = 0;
    const int status = ZelKeymasterOperation::load_data(path, &loaded, len);
    data->reset(loaded);
    return status;
}

// The answer of generateKey or upgradeKey: the error, and a copy of the blob.
struct KeyBlobAnswer {
    int32_t error = ZELKM_UNKNOWN_ERROR;
    MallocBuffer blob;
    size_t len = 0;

    void take(ErrorCode answered, const HidlBytes& bytes) {
        error = static_cast<int32_t>(answered);
        len = bytes.size();
        if (len == 0) {
            return;
        }
        blob = allocateBuffer(len);
        if (blob != nullptr) {
            std::memcpy(blob.get(), bytes.data(), len);
        } else if (error == ZELKM_OK) {
            error = ZELKM_MEMORY_ALLOCATION_FAILED;
        }
    }
};

int upgradeKey(Keymaster* keymaster, const HidlBytes& stored, KeyBlobAnswer* answer) {
    LOG_WARNING("Upgrade the db key");
    const Return<void> upgraded = keymaster->upgradeKey(
        stored, HidlParams(),
        [answer](ErrorCode error, const HidlBytes& blob) { answer->take(error, blob); });
    const int32_t transport = ConverHIDLErrorToKeymasterError(upgraded);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error during upgradeKey hidl call : %d", transport);
        return ZELKM_UNKNOWN_ERROR;
    }
    if (answer->error != ZELKM_OK) {
        return answer->error;
    }
    return answer->len != 0 ? ZELKM_OK : ZELKM_UNKNOWN_ERROR;
}

// Copies the answer of a password conversion into the caller's vectors (borrowed).
struct PasswordAnswer {
    PW_ENCRYPT_TYPE type;
    HidlBytes& material;
    HidlBytes& tag;
    HidlBytes& rot;
    int32_t result = ZELKM_UNKNOWN_ERROR;

    void take(ErrorCode error, const HidlParams& out_params) {
        result = static_cast<int32_t>(error);
        const bool rot_copied = takeRot(out_params);
        if (result != ZELKM_OK) {
            return;
        }
        const bool to_key = type == PW_ENCRYPT_TYPE_TO_KEY;
        const KeyParameter* made_tag = findParameter(out_params, PWHW_TAG_TAG);
        if (to_key && (made_tag == nullptr || made_tag->blob.size() != kPasswordTagLen)) {
            LOG_ERROR("invalid tag");
            result = ZELKM_INVALID_TAG;
            return;
        }
        const bool tag_copied = !to_key || copyBlob(*made_tag, &tag);
        const KeyParameter* made =
            findParameter(out_params, to_key ? PWHW_TAG_KEY : PWHW_TAG_ENCRYPTED_KEY);
        if (made == nullptr) {
            if (to_key) {
                LOG_ERROR("no key");
            } else {
                LOG_ERROR("no encrypted key");
            }
            result = ZELKM_INVALID_TAG;
        } else if (!copyBlob(*made, &material) || !tag_copied || !rot_copied) {
            result = ZELKM_MEMORY_ALLOCATION_FAILED;
        }
    }

  private:
    static bool copyBlob(const KeyParameter& from, HidlBytes* to) {
        return copyBytes(from.blob.data(), from.blob.size(), to);
    }

    bool takeRot(const HidlParams& out_params) {
        static constexpr uint8_t kNoRot[kRotLen] = {};
        const KeyParameter* found = findParameter(out_params, PWHW_TAG_ROT);
        if (found == nullptr || found->blob.size() != kRotLen) {
            LOG_WARNING("invalid rot just set 0");
            return copyBytes(kNoRot, kRotLen, &rot);
        }
        return copyBlob(*found, &rot);
    }
};

// Runs an action that appends to a list. When there is no memory for that, the list stays as it
// was.
template <typename Action>
int appendTo(std::vector<std::string>* list, Action action) {
    const size_t before = list->size();
    if (runNoThrow(action)) {
        return ZELKM_OK;
    }
    list->erase(list->begin() + static_cast<std::ptrdiff_t>(before), list->end());
    return ZELKM_MEMORY_ALLOCATION_FAILED;
}

// The first fields of a row, and the number of all its fields.
struct Fields {
    std::string_view first[2];
    size_t count;
};

Fields splitFields(std::string_view row) {
    Fields fields = {};
    forEachPiece(row, kFieldSeparator, [&fields](std::string_view field) {
        if (fields.count < std::size(fields.first)) {
            fields.first[fields.count] = field;
        }
        ++fields.count;
    });
    return fields;
}

// The calls of one AES-GCM operation. Each returns false when its transport failed, or when it
// could not go on. DBEncrypt() then returns the operation's error: after a transport failure this
// is the keymaster's last answer, usually 0. Callers rely on that. Callbacks capture only one
// reference, because std::function would allocate memory for more.

// False when the transport failed. The caller handles an error that the keymaster returns.
bool beginOperation(Keymaster* keymaster, const HidlBytes& key, const HidlParams& params,
                    GcmOperation* operation) {
    const Return<void> begun = keymaster->begin(
        operation->decrypts() ? KeyPurpose::DECRYPT : KeyPurpose::ENCRYPT, key, params,
        HardwareAuthToken(),
        [operation](ErrorCode error, const HidlParams& out_params, uint64_t handle) {
            operation->begun(error, out_params, handle);
        });
    if (operation->nonceMissing()) {
        LOG_ERROR("no iv tag in begin out param");
    }
    const int32_t transport = ConverHIDLErrorToKeymasterError(begun);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error in begin hidl call : %d", transport);
    }
    return transport == ZELKM_OK;
}

// Offers the rest of the input until the keymaster takes no more. Only the first call has the
// parameters.
bool feedOperation(Keymaster* keymaster, HidlParams params, GcmOperation* operation) {
    do {
        const Return<void> updated = keymaster->update(
            operation->handle(), params, operation->remainingInput(), HardwareAuthToken(),
            VerificationToken(),
            [operation](ErrorCode error, uint32_t consumed, const HidlParams& /*out_params*/,
                        const HidlBytes& output) { operation->updated(error, consumed, output); });
        const int32_t transport = ConverHIDLErrorToKeymasterError(updated);
        if (transport != ZELKM_OK) {
            LOG_ERROR("error in update hidl call : %d", transport);
            return false;
        }
        if (operation->error() != ZELKM_OK) {
            LOG_ERROR("error in update process : %d", operation->error());
            return false;
        }
        params = HidlParams();
    } while (operation->advance());
    return true;
}

// False when the transport failed. The caller handles an error that the keymaster returns.
bool finishOperation(Keymaster* keymaster, GcmOperation* operation) {
    const HidlBytes none;
    const Return<void> finished = keymaster->finish(
        operation->handle(), HidlParams(), none, none, HardwareAuthToken(), VerificationToken(),
        [operation](ErrorCode error, const HidlParams& /*out_params*/, const HidlBytes& output) {
            operation->finished(error, output);
        });
    const int32_t transport = ConverHIDLErrorToKeymasterError(finished);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error in finish hidl call : %d", transport);
    }
    return transport == ZELKM_OK;
}

// Accepts certificates before and after their validity, because a device's clock may be wrong.
int ZelKeymasterOperation_verify_cert_cb(int ok, X509_STORE_CTX* ctx) {
    if (ctx == nullptr) {
        LOG_ERROR("ctx is NULL");
        return -1;
    }
    const int error = X509_STORE_CTX_get_error(ctx);
    if (error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED) {
        return 1;
    }
    return ok;
}

int ZelKeymasterOperation_openssl_error_cb(const char* str, size_t len, void* u) {
    LOG_ERROR("print_openssl_error_cb");
    if (str != nullptr) {
        LOG_ERROR("%s(%d, %p)", str, static_cast<int>(len), u);
    }
    return 1;
}

// Moves libcrypto's error queue to the log.
void logErrorQueue() {
    ERR_print_errors_cb(ZelKeymasterOperation_openssl_error_cb, nullptr);
}

// Removes, when it is destroyed, the entries that libcrypto's error queue has got since its
// construction. Earlier entries stay.
class ErrorQueueMark {
  public:
    ErrorQueueMark() { ERR_set_mark(); }
    ~ErrorQueueMark() { ERR_pop_to_mark(); }
    ErrorQueueMark(const ErrorQueueMark&) = delete;
    ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

// Bytes after the certificate are ignored. libcrypto refuses an empty element, with a reason.
X509Ptr parseCertificate(const hidl_vec<uint8_t>& der) {
    const unsigned char* at = der.data();
    return X509Ptr(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

// Adds the certificates from element `first` on to `untrusted`, which owns them. Returns the last
// one; null when one cannot be added.
X509* parseIssuers(const hidl_vec<hidl_vec<uint8_t>>& chain, size_t first,
                   STACK_OF(X509) * untrusted) {
    X509* root = nullptr;
    for (size_t i = first; i < chain.size(); ++i) {
        X509Ptr certificate = parseCertificate(chain[i]);
        if (certificate == nullptr) {
            LOG_ERROR("d2i_X509 error");
            logErrorQueue();
            return nullptr;
        }
        if (sk_X509_push(untrusted, certificate.get()) == 0) {
            LOG_ERROR("Failed to push certificate");
            return nullptr;
        }
        root = certificate.release();
    }
    return root;
}

// Whether a path (RFC 5280) leads from the leaf to the root. The root is the only trust anchor.
bool verifyPath(X509* leaf, STACK_OF(X509) * untrusted, X509* root) {
    const X509StorePtr store(X509_STORE_new());
    if (store == nullptr) {
        LOG_ERROR("X509_STORE_new error");
        return false;
    }
    X509_STORE_add_cert(store.get(), root);
    const X509StoreCtxPtr context(X509_STORE_CTX_new());
    if (context == nullptr ||
        X509_STORE_CTX_init(context.get(), store.get(), leaf, untrusted) != 1) {
        LOG_ERROR("X509_STORE_CTX_init error");
        return false;
    }
    X509_STORE_CTX_set_verify_cb(context.get(), ZelKeymasterOperation_verify_cert_cb);
    const int result = X509_verify_cert(context.get());
    if (result != 1) {
        LOG_ERROR("X509_verify_cert fail %d, %d", result, X509_STORE_CTX_get_error(context.get()));
        logErrorQueue();
        return false;
    }
    return true;
}

// Whether the leaf's key made the certificate's signature.
bool verifySeparateFirst(const hidl_vec<uint8_t>& der, X509* leaf) {
    const X509Ptr first = parseCertificate(der);
    if (first == nullptr) {
        LOG_ERROR("d2i_X509 error");
        logErrorQueue();
        return false;
    }
    const EvpPkeyPtr key(X509_get_pubkey(leaf));
    if (key == nullptr) {
        LOG_ERROR("X509_get_pubkey error");
        logErrorQueue();
        return false;
    }
    if (X509_verify(first.get(), key.get()) != 1) {
        LOG_ERROR("X509_verify error during GAK");
        logErrorQueue();
        return false;
    }
    return true;
}

}  // namespace

// What an object does with its cached image and its store file. Hidden, because members of the
// object are exported.
class __attribute__((visibility("hidden"))) ZelKeymasterOperation::Store {
  public:
    explicit Store(ZelKeymasterOperation* object) : object_(*object) {}

    // Runs a select, and calls action(row) for each piece of its text; the last piece is a single
    // NUL. The action appends to `list`. The pieces are views, because making a string of each
    // takes most of the time.
    template <typename Action>
    int select(SODOperationParam& p, std::vector<std::string>* list, Action action) {
        if (p.getWhereColumnList().size() != p.getWhereValueList().size() ||
            p.getOutputFormat().empty()) {
            return ZELKM_SYNTAX_ERROR;
        }
        keymaster_blob_t output = {};
        const int status = run(selectCommand(p), &output);
        const size_t len = output.data_length;
        const SecretBuffer text(const_cast<uint8_t*>(output.data), {len});
        if (status != ZELKM_OK) {
            return status;
        }
        return appendTo(list, [&] {
            forEachPiece({reinterpret_cast<const char*>(text.get()), len}, kRowSeparator, action);
        });
    }

    // Runs a command that changes the store, and stores the new image.
    int change(const CommandText& text) {
        keymaster_blob_t output = {};
        int status = run(text, &output);
        MallocBuffer image(const_cast<uint8_t*>(output.data));
        if (status == ZELKM_OK) {
            status = replace(image.get(), static_cast<uint32_t>(output.data_length));
        }
        if (status == ZELKM_OK) {
            static_cast<void>(image.release());  // the object's now
        }
        return status;
    }

    // Replaces the file. Then the object owns `data`, as its cached image.
    int replace(uint8_t* data, uint32_t len) {
        const int status = update_file(kStoreFile, data, len);
        if (status == ZELKM_OK) {
            cache(data, len);
        }
        return status;
    }

    // Repairs after a tag mismatch: either the cached image or the file is damaged. When they
    // differ, the file's content replaces the image. When they are equal, the backup takes the
    // file's place.
    void recover() {
        MallocBuffer stored;
        uint32_t len = 0;
        if (loadFile(kStoreFile, &stored, &len) != ZELKM_OK) {
            LOG_ERROR("fail to load secure db file. it might recover after rebooting");
            return;
        }
        if (sameBytes(stored.get(), len, object_.mDbData, object_.mDbLen)) {
            LOG_ERROR("cached db is same as the stored db, regard the stored db is broken");
            LOG_ERROR("restore the stored db. need to restart keystore");
            // The refused image stays cached. The restored file is read later: see
            // docs/reliability.md.
            static_cast<void>(restoreBackupDB());
        } else {
            LOG_ERROR("cached db is broken, update with the stored db");
        }
        cache(stored.release(), len);
    }

  private:
    // Runs a command on the cached image. The receiver owns the output.
    int run(const CommandText& text, keymaster_blob_t* output) {
        if (text.data == nullptr) {
            return ZELKM_MEMORY_ALLOCATION_FAILED;
        }
        const keymaster_blob_t stored = {object_.mDbData, object_.mDbLen};
        const keymaster_blob_t command = {text.data.get(), text.len};
        return object_.queryInternal(nullptr, &object_, DBEncryptCB, &stored, &command, output);
    }

    void cache(uint8_t* data, uint32_t len) {
        adopt(&object_.mDbData, data);
        object_.mDbLen = len;
    }

    ZelKeymasterOperation& object_;
};

// ---- Log ----------------------------------------------------------------------------------------

void log_to_file(char level, const char* /*file*/, const int line, const char* fmt, ...) {
    char text[kMaxErrorFileText + 1] = {};
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, kMaxErrorFileText, fmt, args);
    va_end(args);
    writeErrorFile(level, baseName(__FILE__), line, text);
}

namespace {

// Apart from the answer, so that a call that gets through does not pay for the text.
[[gnu::noinline]] void logTransportError(const Return<void>& ret) {
    std::string description;
    const bool described = runNoThrow([&] { description = ret.description(); });
    LOG_ERROR("HIDL call failed with %s", described ? description.c_str() : "(out of memory)");
}

}  // namespace

int32_t zelkm::ConverHIDLErrorToKeymasterError(const Return<void>& ret) {
    if (ret.isOk()) {
        return ZELKM_OK;
    }
    logTransportError(ret);
    return ZELKM_UNKNOWN_ERROR;
}

// ---- The object ---------------------------------------------------------------------------------

ZelKeymasterOperation::ZelKeymasterOperation(Keymaster* km, bool enableSecureDb)
    : mDbData(nullptr),
      mDbLen(0),
      mDbKeyBlob(nullptr),
      mDbKeyBlobLen(0),
      mSecureDbEnabled(false),
      mKeymaster(nullptr) {
    setUpErrorFile();
    if (enableSecureDb) {
        // Without an image the object starts with an empty store.
        static_cast<void>(load_data(kStoreFile, &mDbData, &mDbLen));
    }
    mKeymaster = km;
    mSecureDbEnabled = enableSecureDb;
    LOG_DEBUG("instantiated with IZelKeymasterDevice");
}

// mDbKeyBlob is not freed: an object lives as long as its process.
ZelKeymasterOperation::~ZelKeymasterOperation() {
    std::free(mDbData);
}

void ZelKeymasterOperation::initZelKeymasterOperation() {
    mKeymaster = nullptr;
    mDbData = nullptr;
    mDbLen = 0;
    mDbKeyBlob = nullptr;
    mDbKeyBlobLen = 0;
    setUpErrorFile();
}

// ---- Secure objects -----------------------------------------------------------------------------

int ZelKeymasterOperation::SodInsert(SODOperationParam& p) {
    return Store(this).change(insertCommand(p));
}

int ZelKeymasterOperation::SodUpdate(SODOperationParam& p) {
    if (p.getColumnList().empty() || p.getColumnList().size() != p.getDataList().size()) {
        return ZELKM_SYNTAX_ERROR;
    }
    return Store(this).change(updateCommand(p));
}

int ZelKeymasterOperation::SodDelete(SODOperationParam& p) {
    const int status = Store(this).change(deleteCommand(p));
    return status == ZELKM_NOTHING_DELETED ? ZELKM_OK : status;
}

int ZelKeymasterOperation::SodSelect(SODOperationParam& p, std::vector<std::string>& rows) {
    return Store(this).select(p, &rows, [&rows](std::string_view row) { rows.emplace_back(row); });
}

int ZelKeymasterOperation::SodRetreiveAlias(SODOperationParam& p, std::vector<std::string>& out) {
    if (!runNoThrow([&p] { p.clearOutputFormat().addCreatorToOutput().addAliasToOutput(); })) {
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }
    return Store(this).select(p, &out, [&out](std::string_view row) {
        const Fields fields = splitFields(row);
        if (fields.count == 2) {
            std::string& name = out.emplace_back();
            name.reserve(fields.first[0].size() + 2 + fields.first[1].size());
            name.append(fields.first[0]).append("::").append(fields.first[1]);
        }
    });
}

int ZelKeymasterOperation::SodRetreiveOther(SODOperationParam& p, std::vector<std::string>& out) {
    return Store(this).select(p, &out, [&out](std::string_view row) {
        const Fields fields = splitFields(row);
        if (fields.count == 1 && !fields.first[0].empty() && fields.first[0][0] != '\0') {
            out.emplace_back(fields.first[0]);
        }
    });
}

// ---- Queries ------------------------------------------------------------------------------------

int ZelKeymasterOperation::queryInternal(const keymaster_key_param_set_t* /*params*/, void* ctx,
                                         int (*cb)(void*, unsigned int, unsigned char*,
                                                   unsigned char*, unsigned int, unsigned char*,
                                                   unsigned char*, unsigned char*, unsigned int),
                                         const keymaster_blob_t* storedDb,
                                         const keymaster_blob_t* command, keymaster_blob_t* out) {
    if (!mSecureDbEnabled) {
        return ZELKM_SECURE_DB_DISABLED;
    }
    if (out == nullptr) {
        return ZELKM_INVALID_ARGUMENT;
    }
    *out = {};
    sdb_register_db_encrypt_fp(ctx, cb);

    const auto query = [command, out](const keymaster_blob_t& stored) {
        const keymaster_blob_t text = command != nullptr ? *command : keymaster_blob_t{};
        unsigned char* result = nullptr;
        unsigned int result_len = 0;
        const int status = sdb_query(reinterpret_cast<const char*>(text.data),
                                     static_cast<unsigned int>(text.data_length), stored.data,
                                     static_cast<unsigned int>(stored.data_length), &result,
                                     &result_len, &g_table_handle);
        if (status == ZELKM_OK) {
            *out = {result, result_len};
        } else {
            g_table_handle = 0;
        }
        return status;
    };

    if (g_table_handle != 0) {
        const int status = query({});
        if (status != ZELKM_STALE_TABLE_HANDLE) {
            return status;
        }
    }
    return query(storedDb != nullptr ? *storedDb : keymaster_blob_t{});
}

int DBEncryptCB(void* ctx, unsigned int mode, unsigned char* plain, unsigned char* cipher,
                unsigned int len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                unsigned int aadLen) {
    if (ctx == nullptr) {
        return ZELKM_UNKNOWN_ERROR;
    }
    return static_cast<ZelKeymasterOperation*>(ctx)->DBEncrypt(mode, plain, cipher, len, iv, tag,
                                                               aad, aadLen);
}

int ZelKeymasterOperation::DBEncrypt(unsigned int mode, unsigned char* plain, unsigned char* cipher,
                                     unsigned int len, unsigned char* iv, unsigned char* tag,
                                     unsigned char* aad, unsigned int aadLen) {
    if (mKeymaster == nullptr) {
        LOG_ERROR("This case should not be happen. keymaster dev shoud not be used directrly");
        return ZELKM_UNKNOWN_ERROR;
    }
    const bool decrypt = mode == 0;
    if (plain == nullptr || cipher == nullptr || len == 0 || iv == nullptr || tag == nullptr ||
        aad == nullptr || aadLen == 0) {
        return ZELKM_INVALID_ARGUMENT;
    }
    const int key_status = init_db_key(0);
    if (key_status != ZELKM_OK) {
        LOG_ERROR("init_db_key fail");
        return key_status;
    }

    GcmOperation operation(decrypt, {plain, cipher, len, iv, tag});
    const HidlParams begin_params = gcmBeginParameters(decrypt ? iv : nullptr);
    HidlParams update_params = associatedDataParameters(aad, aadLen);
    if (!operation.allocate() || begin_params.size() == 0 || update_params.size() == 0) {
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }

    if (!beginOperation(mKeymaster, viewOf(mDbKeyBlob, mDbKeyBlobLen), begin_params, &operation)) {
        return operation.error();
    }
    if (operation.error() != ZELKM_OK) {
        LOG_ERROR("error in begin process : %d", operation.error());
        if (operation.error() == ZELKM_INVALID_KEY_BLOB && mDbKeyBlob != nullptr) {
            static_cast<void>(restoreKeyBlob());
        }
        return operation.error();
    }

    if (!feedOperation(mKeymaster, std::move(update_params), &operation)) {
        return operation.error();
    }
    if (operation.consumed() != operation.inputLen()) {
        LOG_ERROR("Not all data has been consumed. Consumed %zu of %zu bytes\n",
                  operation.consumed(), operation.inputLen());
        return ZELKM_UNKNOWN_ERROR;
    }

    if (finishOperation(mKeymaster, &operation) && operation.error() != ZELKM_OK) {
        LOG_ERROR("error in finish process : %d", operation.error());
        if (operation.error() == ZELKM_VERIFICATION_FAILED) {
            Store(this).recover();
        }
    }
    return operation.error();
}

// ---- Database key -------------------------------------------------------------------------------

int ZelKeymasterOperation::init_db_key(int regenerate) {
    if (regenerate == 0) {
        if (mDbKeyBlobLen != 0) {
            return ZELKM_OK;
        }
        MallocBuffer stored;
        uint32_t len = 0;
        if (loadFile(kKeyFile, &stored, &len) == ZELKM_OK && len != 0) {
            const int status = setLoadedDBKey(stored.get(), len);
            if (mDbKeyBlob == stored.get()) {
                static_cast<void>(stored.release());
            }
            if (status == ZELKM_OK || status == ZELKM_KEY_REQUIRES_UPGRADE) {
                return ZELKM_OK;
            }
            LOG_ERROR("check_and_upgrade_db_key error(%d)", status);
            LOG_WARNING("try restoreKeyBlob(%d)", status);
            static_cast<void>(restoreKeyBlob());
            return status;
        }
    }

    adopt(&mDbKeyBlob, nullptr);
    mDbKeyBlobLen = 0;
    if (mKeymaster == nullptr) {
        LOG_WARNING("This case should not exist, keygeneration with keymaster dev");
        return ZELKM_UNKNOWN_ERROR;
    }
    return generate_db_key();
}

int ZelKeymasterOperation::generate_db_key() {
    if (mKeymaster == nullptr) {
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    const HidlParams params = dbKeyParameters();
    if (params.size() == 0) {
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }
    KeyBlobAnswer answer;
    const Return<void> generated = mKeymaster->generateKey(
        params,
        [&answer](ErrorCode error, const HidlBytes& blob,
                  const KeyCharacteristics& /*characteristics*/) { answer.take(error, blob); });
    const int32_t transport = ConverHIDLErrorToKeymasterError(generated);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error in generateKey hidl call : %d", transport);
        return transport;
    }
    if (answer.error != ZELKM_OK) {
        return answer.error;
    }
    if (answer.len == 0) {
        return ZELKM_OK;
    }
    HidlBytes blob = viewOf(answer.blob.get(), answer.len);
    const int status = updateDBKeyFile(blob);
    if (status != ZELKM_OK) {
        return status;
    }
    adopt(&mDbKeyBlob, answer.blob.release());
    mDbKeyBlobLen = answer.len;
    return ZELKM_OK;
}

int ZelKeymasterOperation::updateDBKeyFile(hidl_vec<uint8_t>& blob) {
    int status = update_file(kKeyFile, blob.data(), static_cast<uint32_t>(blob.size()));
    if (status != ZELKM_OK) {
        return status;
    }
    uint8_t digest[SHA256_DIGEST_LENGTH];
    if (SHA256(blob.data(), blob.size(), digest) == nullptr) {
        LOG_ERROR("key file hash generation fail");
        return ZELKM_OK;
    }
    status = update_file(kKeyDigestFile, digest, sizeof(digest));
    if (status != ZELKM_OK) {
        LOG_ERROR("key file hash writing fail %d", status);
    }
    return status;
}

int ZelKeymasterOperation::setLoadedDBKey(uint8_t* blob, uint32_t len) {
    if (blob == nullptr || len == 0) {
        LOG_ERROR("invalid param");
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    if (mKeymaster == nullptr) {
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    const HidlBytes stored = viewOf(blob, len);
    const HidlBytes none;
    int32_t error = ZELKM_UNKNOWN_ERROR;
    const Return<void> checked = mKeymaster->getKeyCharacteristics(
        stored, none, none,
        [&error](ErrorCode answered, const KeyCharacteristics& /*characteristics*/) {
            error = static_cast<int32_t>(answered);
        });
    const int32_t transport = ConverHIDLErrorToKeymasterError(checked);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error during getKeyCharacteristics hidl call : %d", transport);
        return ZELKM_UNKNOWN_ERROR;
    }
    if (error != ZELKM_KEY_REQUIRES_UPGRADE) {
        if (error != ZELKM_OK) {
            // The number is always 0, because readers of the log search for the whole line.
            LOG_ERROR("getKeyCharacteristics but set anyway, err : %d", 0);
        }
        adopt(&mDbKeyBlob, blob);
        mDbKeyBlobLen = len;
        return error;
    }

    KeyBlobAnswer answer;
    const int upgraded = upgradeKey(mKeymaster, stored, &answer);
    if (upgraded != ZELKM_OK) {
        return upgraded;
    }
    LOG_WARNING("Upgrade the db key file");
    HidlBytes upgraded_blob = viewOf(answer.blob.get(), answer.len);
    const int status = updateDBKeyFile(upgraded_blob);
    if (status != ZELKM_OK) {
        return status;
    }
    adopt(&mDbKeyBlob, answer.blob.release());
    mDbKeyBlobLen = answer.len;
    return ZELKM_KEY_REQUIRES_UPGRADE;
}

int ZelKeymasterOperation::restoreKeyBlob() {
    MallocBuffer stored;
    uint32_t stored_len = 0;
    int status = loadFile(kKeyFile, &stored, &stored_len);
    if (status != ZELKM_OK) {
        LOG_ERROR("No keyfile, it will be restored after rebooting");
        return status;
    }
    if (sameBytes(mDbKeyBlob, mDbKeyBlobLen, stored.get(), stored_len)) {
        LOG_DEBUG("cached key blob is verified same as the stored blob");
    } else {
        LOG_ERROR("cached key blob is broken, update with the stored blob");
        adopt(&mDbKeyBlob, stored.release());
        mDbKeyBlobLen = stored_len;
    }

    MallocBuffer stored_digest;
    uint32_t digest_len = 0;
    status = loadFile(kKeyDigestFile, &stored_digest, &digest_len);
    if (status != ZELKM_OK || digest_len != SHA256_DIGEST_LENGTH) {
        LOG_ERROR("No key digest file, regard it does not support");
        return status;
    }
    uint8_t digest[SHA256_DIGEST_LENGTH];
    if (SHA256(mDbKeyBlob, mDbKeyBlobLen, digest) == nullptr) {
        LOG_ERROR("cached key hash generation fail");
        return ZELKM_OK;
    }
    if (sameBytes(digest, sizeof(digest), stored_digest.get(), digest_len)) {
        LOG_ERROR("key blob is verified, regard the device is corrupted or the old version");
        return ZELKM_OK;
    }
    LOG_ERROR("key blob is corrupted. regard the key file is broken and regenerate key");
    if (init_db_key(1) != ZELKM_OK) {
        LOG_ERROR("key blob generation failure. no way to restore");
    }
    return ZELKM_OK;
}

// ---- Password hardware key ----------------------------------------------------------------------

int ZelKeymasterOperation::encryptWithPasswordHWKey(
    const hidl_vec<uint8_t>& in1, const hidl_vec<uint8_t>& in2, const hidl_vec<uint8_t>& material,
    hidl_vec<uint8_t>& converted, const hidl_vec<uint8_t>& in3, const hidl_vec<uint8_t>& in4,
    hidl_vec<uint8_t>& tag, hidl_vec<uint8_t>& rot, PW_ENCRYPT_TYPE type) {
    if (mKeymaster == nullptr) {
        LOG_ERROR("encryptWithPasswordHWKey: invalid keymaster dev pointer");
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    if (in1.size() == 0 || in2.size() == 0 || material.size() == 0 || in3.size() == 0 ||
        in4.size() == 0) {
        return ZELKM_INVALID_ARGUMENT;
    }
    KeyPurpose purpose = PWHW_PURPOSE_TO_KEY;
    if (type == PW_ENCRYPT_TYPE_TO_ENCRYPTED_KEY) {
        if (tag.size() == 0) {
            return ZELKM_INVALID_ARGUMENT;
        }
        purpose = PWHW_PURPOSE_TO_ENCRYPTED_KEY;
    } else if (type != PW_ENCRYPT_TYPE_TO_KEY) {
        LOG_ERROR("not supported mode : %d", static_cast<int>(type));
        return ZELKM_UNSUPPORTED_PURPOSE;
    }
    const PasswordParameters params(type, {in1, in2, material, in3, in4}, tag);
    if (params.list().size() == 0) {
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }

    PasswordAnswer answer = {type, converted, tag, rot};
    const Return<void> begun =
        mKeymaster->begin(purpose, HidlBytes(), params.list(), HardwareAuthToken(),
                          [&answer](ErrorCode error, const HidlParams& out_params,
                                    uint64_t /*handle*/) { answer.take(error, out_params); });
    const int32_t transport = ConverHIDLErrorToKeymasterError(begun);
    if (transport != ZELKM_OK) {
        LOG_ERROR("error in begin hidl call : %d", transport);
        return ZELKM_UNKNOWN_ERROR;
    }
    return answer.result;
}

int ZelKeymasterOperation::encryptWithPasswordHWKey(
    const hidl_vec<uint8_t>& in1, const hidl_vec<uint8_t>& in2, const hidl_vec<uint8_t>& material,
    hidl_vec<uint8_t>& converted, const hidl_vec<uint8_t>& in3, const hidl_vec<uint8_t>& in4,
    hidl_vec<uint8_t>& tag, PW_ENCRYPT_TYPE type) {
    hidl_vec<uint8_t> rot;
    const int status =
        encryptWithPasswordHWKey(in1, in2, material, converted, in3, in4, tag, rot, type);
    OPENSSL_cleanse(rot.data(), rot.size());
    return status;
}

// ---- Attestation --------------------------------------------------------------------------------

int ZelKeymasterOperation::generateCSR(const hidl_vec<uint8_t>& keyBlob,
                                       const hidl_vec<KeyParameter>& params,
                                       hidl_vec<uint8_t>& csr) {
    if (mKeymaster == nullptr) {
        LOG_ERROR("AttestKey: invalid IZelkeymasterDevice pointer");
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    LOG_DEBUG("GenerateCSR start");
    const bool asked = findParameter(params, TAG_GENERATE_CSR) != nullptr;
    const HidlParams extended = asked ? HidlParams() : withBoolParameter(params, TAG_GENERATE_CSR);
    if (!asked && extended.size() == 0) {
        return ZELKM_MEMORY_ALLOCATION_FAILED;
    }

    struct {
        hidl_vec<uint8_t>& csr;
        int32_t result;
    } answer = {csr, ZELKM_UNKNOWN_ERROR};
    const Return<void> attested =
        mKeymaster->attestKey(keyBlob, asked ? params : extended,
                              [&answer](ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& blobs) {
                                  answer.result = static_cast<int32_t>(error);
                                  if (error == ErrorCode::OK && blobs.size() == 1 &&
                                      !copyBytes(blobs[0].data(), blobs[0].size(), &answer.csr)) {
                                      answer.result = ZELKM_MEMORY_ALLOCATION_FAILED;
                                  }
                              });
    if (!attested.isOk()) {
        LOG_ERROR("GenerateCSR: IZelkeymasterDevice void error");
        return ZELKM_UNKNOWN_ERROR;
    }
    return answer.result;
}

int ZelKeymasterOperation::validateAttestChain(const hidl_vec<hidl_vec<uint8_t>>& chain,
                                               bool chainOnly) {
    const ErrorQueueMark mark;
    if (chain.size() < kMinChainLen) {
        LOG_ERROR("Invalid attestion chain length");
        return ZELKM_VERIFICATION_FAILED;
    }
    const size_t path_start = chainOnly ? 0 : 1;
    const X509Ptr leaf = parseCertificate(chain[path_start]);
    if (leaf == nullptr) {
        LOG_ERROR("d2i_X509 error");
        return ZELKM_VERIFICATION_FAILED;
    }
    const X509StackPtr untrusted(sk_X509_new_null());
    if (untrusted == nullptr) {
        LOG_ERROR("sk_X509_new_null error");
        return ZELKM_VERIFICATION_FAILED;
    }
    X509* const root = parseIssuers(chain, path_start + 1, untrusted.get());
    if (root == nullptr) {
        return ZELKM_VERIFICATION_FAILED;
    }
    if (!verifyPath(leaf.get(), untrusted.get(), root)) {
        LOG_ERROR("verify_cert_chain fail");
        return ZELKM_VERIFICATION_FAILED;
    }
    return chainOnly || verifySeparateFirst(chain[0], leaf.get()) ? ZELKM_OK
                                                                  : ZELKM_VERIFICATION_FAILED;
}

// ---- Files --------------------------------------------------------------------------------------

int ZelKeymasterOperation::load_data(const char* path, uint8_t** data, uint32_t* len) {
    if (path == nullptr || data == nullptr || len == nullptr) {
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    adopt(data, nullptr);
    int error = 0;
    const File file = File::forReading(path, &error);
    if (!file.isOpen()) {
        LOG_WARNING("no file %s", path);
        *len = 0;
        return ZELKM_OK;
    }
    uint32_t size = 0;
    MallocBuffer content;
    bool complete = file.takeSize(&size, &error);
    if (complete && size != 0) {
        content = allocateBuffer(size);
        if (content == nullptr) {
            return ZELKM_MEMORY_ALLOCATION_FAILED;
        }
        complete = file.read(content.get(), size, &error);
    }
    if (!complete) {
        LOG_ERROR("file read fail: %s(%d)", std::strerror(error), error);
        *len = 0;
        return ZELKM_OK;
    }
    *data = content.release();
    *len = size;
    return ZELKM_OK;
}

int ZelKeymasterOperation::update_file(const char* path, const uint8_t* data, uint32_t len) {
    if (path == nullptr || data == nullptr || len == 0) {
        return ZELKM_UNEXPECTED_NULL_POINTER;
    }
    const CompanionName temporary(path, kTemporarySuffix);
    const CompanionName backup(path, kBackupSuffix);
    int error = 0;
    {
        const File file = File::forWriting(temporary.get(), &error);
        if (!file.isOpen()) {
            LOG_ERROR("file open: %s(%d)", std::strerror(error), error);
            return ZELKM_UNKNOWN_ERROR;
        }
        if (!file.write(data, len, &error)) {
            LOG_ERROR("file write fail: %s(%d)", std::strerror(error), error);
            return ZELKM_UNKNOWN_ERROR;
        }
        file.flush();
    }

    if (!removeFile(backup.get(), &error) && error != ENOENT) {
        LOG_WARNING("fail to remove backup file: %s(%d)", std::strerror(error), error);
    }
    if (!renameFile(path, backup.get(), &error) && error != ENOENT) {
        LOG_WARNING("fail to rename to the backup file: %s(%d)", std::strerror(error), error);
    }
    if (!removeFile(path, &error) && error != ENOENT) {
        LOG_ERROR("fail unlink: %s(%d)", std::strerror(error), error);
        return ZELKM_UNKNOWN_ERROR;
    }
    if (!renameFile(temporary.get(), path, &error)) {
        LOG_ERROR("fail rename: %s(%d)", std::strerror(error), error);
        return ZELKM_UNKNOWN_ERROR;
    }
    flushDirectory();
    return ZELKM_OK;
}

int ZelKeymasterOperation::update_db_file(const uint8_t* data, uint32_t len) {
    return Store(this).replace(const_cast<uint8_t*>(data), len);
}

int ZelKeymasterOperation::restoreBackupDB() {
    const CompanionName backup(kStoreFile, kBackupSuffix);
    int error = 0;
    if (!removeFile(kStoreFile, &error)) {
        if (error != ENOENT) {
            LOG_ERROR("fail unlink during restore: %s(%d)", std::strerror(error), error);
            return ZELKM_UNKNOWN_ERROR;
        }
        LOG_DEBUG("no secure object file");
    }
    if (!renameFile(backup.get(), kStoreFile, &error)) {
        LOG_ERROR("fail rename during restore:%s(%d)", std::strerror(error), error);
        return ZELKM_UNKNOWN_ERROR;
    }
    flushDirectory();
    return ZELKM_OK;
}
