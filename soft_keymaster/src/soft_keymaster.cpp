// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "soft_keymaster/soft_keymaster.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#include <algorithm>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "aes_gcm_operation.h"
#include "attestation.h"
#include "common.h"
#include "key_blob.h"
#include "key_description.h"
#include "key_generation.h"
#include "params.h"
#include "password_conversion.h"
#include "root_key.h"
#include "zelkeymaster_vendor_tags.h"

namespace soft_keymaster {

using android::hardware::Status;
using android::hardware::Void;
using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::SecurityLevel;

namespace {

constexpr char kDescriptor[] = "android.hardware.keymaster@4.0::IKeymasterDevice";
constexpr char kName[] = "SoftKeymaster";
constexpr char kAuthor[] = "libzelkeymaster";
constexpr uint8_t kMajorVersion = 4;
constexpr size_t kMaxEntropySize = 2048;
constexpr size_t kMaxChallengeSize = 128;

// Keeps errors of this keymaster out of the caller's OpenSSL error queue. A real keymaster is
// another process, and leaves nothing there.
class ErrorQueueGuard {
  public:
    ErrorQueueGuard() { ERR_set_mark(); }
    ~ErrorQueueGuard() { ERR_pop_to_mark(); }
    ErrorQueueGuard(const ErrorQueueGuard&) = delete;
    ErrorQueueGuard& operator=(const ErrorQueueGuard&) = delete;
};

// Runs `body`, and turns an exception into the code to return.
template <typename Body>
ErrorCode guarded(Body body) {
    const ErrorQueueGuard guard;
    try {
        body();
        return ErrorCode::OK;
    } catch (const KeymasterError& error) {
        return error.code;
    } catch (const std::bad_alloc&) {
        return ErrorCode::MEMORY_ALLOCATION_FAILED;
    } catch (...) {
        return ErrorCode::UNKNOWN_ERROR;
    }
}

// Runs the callback. Refuses a null one, as the platform does.
template <typename Callback, typename... Values>
Return<void> answer(const Callback& cb, const Values&... values) {
    if (!cb) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT, "no callback");
    }
    cb(values...);
    return Void();
}

KeyCharacteristics softwareEnforced(Params params) {
    KeyCharacteristics characteristics;
    characteristics.softwareEnforced = std::move(params);
    return characteristics;
}

bool asksForDeviceIds(const Params& params) {
    return std::any_of(params.begin(), params.end(), [](const KeyParameter& param) {
        return param.tag >= Tag::ATTESTATION_ID_BRAND && param.tag <= Tag::ATTESTATION_ID_MODEL;
    });
}

uint32_t patchLevelOf(const Key& key) {
    return findInteger(key.characteristics, Tag::OS_PATCHLEVEL).value_or(0);
}

}  // namespace

struct SoftKeymaster::State {
    explicit State(const Options& given) : options(given) {}

    const RootKey& rootKey() {
        if (!root_key) {
            root_key.emplace(options.root_key_path);
        }
        return *root_key;
    }

    const AttestationAuthority& authority() {
        if (!attestation) {
            const std::string& root = options.root_key_path;
            attestation.emplace(root.empty() ? root : root + ".attest");
        }
        return *attestation;
    }

    // Opens a key that may be used at the device's patch level.
    Key usableKey(const hidl_vec<uint8_t>& blob, const Bytes& client_data) {
        Key key = unwrapKey(rootKey(), blob, client_data);
        require(patchLevelOf(key) <= options.patch_level, ErrorCode::INVALID_KEY_BLOB);
        require(patchLevelOf(key) == options.patch_level, ErrorCode::KEY_REQUIRES_UPGRADE);
        return key;
    }

    uint64_t open(std::unique_ptr<AesGcmOperation> operation) {
        uint64_t handle = 0;
        while (handle == 0 || operations.count(handle) != 0) {
            requireSsl(RAND_bytes(reinterpret_cast<uint8_t*>(&handle), sizeof(handle)) == 1);
        }
        operations[handle] = std::move(operation);
        return handle;
    }

    AesGcmOperation& operation(uint64_t handle) {
        const auto found = operations.find(handle);
        require(found != operations.end(), ErrorCode::INVALID_OPERATION_HANDLE);
        return *found->second;
    }

    Options options;
    VersionResult version{kName, kAuthor, kMajorVersion, SecurityLevel::SOFTWARE, true};
    std::optional<RootKey> root_key;
    std::optional<AttestationAuthority> attestation;
    std::map<uint64_t, std::unique_ptr<AesGcmOperation>> operations;
};

SoftKeymaster::SoftKeymaster(const Options& options)
    : StoreKeymaster(kDescriptor, "soft"), state_(std::make_unique<State>(options)) {}

SoftKeymaster::~SoftKeymaster() = default;

void SoftKeymaster::setPatchLevel(uint32_t patch_level) {
    state_->options.patch_level = patch_level;
}

const SoftKeymaster::VersionResult& SoftKeymaster::halVersion() const {
    return state_->version;
}

Return<void> SoftKeymaster::getHardwareInfo(getHardwareInfo_cb cb) {
    const VersionResult& version = state_->version;
    return answer(cb, version.securityLevel, version.keymasterName, version.authorName);
}

Return<ErrorCode> SoftKeymaster::addRngEntropy(const hidl_vec<uint8_t>& data) {
    if (data.size() > kMaxEntropySize) {
        return ErrorCode::INVALID_INPUT_LENGTH;
    }
    RAND_add(data.data(), static_cast<int>(data.size()), 0);
    return ErrorCode::OK;
}

Return<void> SoftKeymaster::generateKey(const hidl_vec<KeyParameter>& key_params,
                                        generateKey_cb cb) {
    return makeKey(key_params, nullptr, cb);
}

Return<void> SoftKeymaster::importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                                      const hidl_vec<uint8_t>& key_data, importKey_cb cb) {
    if (format != KeyFormat::RAW) {
        return answer(cb, ErrorCode::UNSUPPORTED_KEY_FORMAT, hidl_vec<uint8_t>(),
                      KeyCharacteristics());
    }
    return makeKey(key_params, &key_data, cb);
}

Return<void> SoftKeymaster::makeKey(const hidl_vec<KeyParameter>& params,
                                    const hidl_vec<uint8_t>* imported, const generateKey_cb& cb) {
    hidl_vec<uint8_t> blob;
    KeyCharacteristics characteristics;
    const ErrorCode error = guarded([&] {
        const Key key = soft_keymaster::makeKey(params, state_->options.patch_level, imported);
        hidl_vec<uint8_t> wrapped = wrapKey(state_->rootKey(), key, clientDataOf(params));
        characteristics = softwareEnforced(key.characteristics);
        blob = std::move(wrapped);
    });
    return answer(cb, error, blob, characteristics);
}

Return<void> SoftKeymaster::getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                                  const hidl_vec<uint8_t>& client_id,
                                                  const hidl_vec<uint8_t>& app_data,
                                                  getKeyCharacteristics_cb cb) {
    KeyCharacteristics characteristics;
    const ErrorCode error = guarded([&] {
        const Key key = state_->usableKey(key_blob, clientDataOf(client_id, app_data));
        characteristics = softwareEnforced(key.characteristics);
    });
    return answer(cb, error, characteristics);
}

Return<void> SoftKeymaster::upgradeKey(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<KeyParameter>& upgrade_params,
                                       upgradeKey_cb cb) {
    hidl_vec<uint8_t> upgraded;
    const ErrorCode error = guarded([&] {
        const Bytes client_data = clientDataOf(upgrade_params);
        Key key = unwrapKey(state_->rootKey(), key_blob, client_data);
        const uint32_t patch_level = state_->options.patch_level;
        require(patchLevelOf(key) <= patch_level, ErrorCode::INVALID_ARGUMENT);
        if (patchLevelOf(key) == patch_level) {
            return;
        }
        for (KeyParameter& param : key.characteristics) {
            if (param.tag == Tag::OS_PATCHLEVEL) {
                param.f.integer = patch_level;
            }
        }
        upgraded = wrapKey(state_->rootKey(), key, client_data);
    });
    return answer(cb, error, upgraded);
}

Return<ErrorCode> SoftKeymaster::deleteKey(const hidl_vec<uint8_t>& /* key_blob */) {
    return ErrorCode::OK;
}

Return<void> SoftKeymaster::attestKey(const hidl_vec<uint8_t>& key_blob,
                                      const hidl_vec<KeyParameter>& attest_params,
                                      attestKey_cb cb) {
    hidl_vec<hidl_vec<uint8_t>> chain;
    const ErrorCode error = guarded([&] {
        const Key key = state_->usableKey(key_blob, clientDataOf(attest_params));
        const PkeyPtr pair = privateKey(key);
        const KeyParameter* request = findParam(attest_params, TAG_GENERATE_CSR);
        if (request != nullptr && request->f.boolValue) {
            chain = {makeCertificateRequest(pair.get())};
            return;
        }
        const KeyParameter* challenge = findParam(attest_params, Tag::ATTESTATION_CHALLENGE);
        require(challenge != nullptr, ErrorCode::ATTESTATION_CHALLENGE_MISSING);
        require(challenge->blob.size() <= kMaxChallengeSize, ErrorCode::INVALID_INPUT_LENGTH);
        const KeyParameter* app_id = findParam(attest_params, Tag::ATTESTATION_APPLICATION_ID);
        require(app_id != nullptr, ErrorCode::ATTESTATION_APPLICATION_ID_MISSING);
        require(!asksForDeviceIds(attest_params), ErrorCode::CANNOT_ATTEST_IDS);
        chain = state_->authority().certify(
            pair.get(), encodeKeyDescription(key.characteristics, challenge->blob, app_id->blob));
    });
    return answer(cb, error, chain);
}

Return<void> SoftKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                                  const hidl_vec<KeyParameter>& in_params,
                                  const HardwareAuthToken& /* auth_token */, begin_cb cb) {
    hidl_vec<KeyParameter> out_params;
    uint64_t handle = 0;
    const ErrorCode error = guarded([&] {
        if (purpose == PWHW_PURPOSE_TO_KEY || purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
            require(key_blob.size() == 0, ErrorCode::INVALID_ARGUMENT);
            out_params = convertPassword(state_->rootKey(), purpose, in_params);
            return;
        }
        const Key key = state_->usableKey(key_blob, clientDataOf(in_params));
        require(hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES),
                ErrorCode::UNIMPLEMENTED);
        require(state_->operations.size() < state_->options.max_operations,
                ErrorCode::TOO_MANY_OPERATIONS);
        hidl_vec<KeyParameter> made;
        handle = state_->open(std::make_unique<AesGcmOperation>(purpose, key, in_params, made));
        out_params = std::move(made);
    });
    return answer(cb, error, out_params, handle);
}

Return<void> SoftKeymaster::update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                   const hidl_vec<uint8_t>& input,
                                   const HardwareAuthToken& /* auth_token */,
                                   const VerificationToken& /* verification_token */,
                                   update_cb cb) {
    uint32_t consumed = 0;
    hidl_vec<uint8_t> output;
    const ErrorCode error = guarded([&] {
        const size_t limit = state_->options.max_update_bytes;
        output = state_->operation(handle).update(in_params, input, limit == 0 ? SIZE_MAX : limit,
                                                  consumed);
    });
    if (error != ErrorCode::OK) {
        state_->operations.erase(handle);
    }
    return answer(cb, error, consumed, hidl_vec<KeyParameter>(), output);
}

Return<void> SoftKeymaster::finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                   const hidl_vec<uint8_t>& input,
                                   const hidl_vec<uint8_t>& /* signature */,
                                   const HardwareAuthToken& /* auth_token */,
                                   const VerificationToken& /* verification_token */,
                                   finish_cb cb) {
    hidl_vec<uint8_t> output;
    const ErrorCode error =
        guarded([&] { output = state_->operation(handle).finish(in_params, input); });
    state_->operations.erase(handle);
    return answer(cb, error, hidl_vec<KeyParameter>(), output);
}

Return<ErrorCode> SoftKeymaster::abort(uint64_t handle) {
    return state_->operations.erase(handle) == 1 ? ErrorCode::OK
                                                 : ErrorCode::INVALID_OPERATION_HANDLE;
}

Return<void> SoftKeymaster::exportKey(KeyFormat, const hidl_vec<uint8_t>& key_blob,
                                      const hidl_vec<uint8_t>& client_id,
                                      const hidl_vec<uint8_t>& app_data, exportKey_cb cb) {
    const ErrorCode error = guarded([&] {
        const Key key = state_->usableKey(key_blob, clientDataOf(client_id, app_data));
        const bool is_aes = hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES);
        throw KeymasterError{is_aes ? ErrorCode::UNSUPPORTED_KEY_FORMAT  // a secret has no format
                                    : ErrorCode::UNIMPLEMENTED};
    });
    return answer(cb, error, hidl_vec<uint8_t>());
}

Return<ErrorCode> SoftKeymaster::deleteAllKeys() {
    return ErrorCode::OK;
}

}  // namespace soft_keymaster
