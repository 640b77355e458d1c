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

    // Makes a call that the keymaster has, and fills in its answer. Throws the error to return.
    void make(const CallRecord& call, Answer& answer);
    void makeKey(const CallRecord& call, Answer& answer);
    void upgrade(const CallRecord& call, Answer& answer);
    void attest(const CallRecord& call, Answer& answer);
    void begin(const CallRecord& call, Answer& answer);

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

Return<ErrorCode> SoftKeymaster::addRngEntropy(const hidl_vec<uint8_t>& data) {
    if (data.size() > kMaxEntropySize) {
        return ErrorCode::INVALID_INPUT_LENGTH;
    }
    RAND_add(data.data(), static_cast<int>(data.size()), 0);
    return ErrorCode::OK;
}

Return<ErrorCode> SoftKeymaster::deleteAllKeys() {
    return ErrorCode::OK;
}

Return<void> SoftKeymaster::handle(const CallRecord& call, const Reply& reply) {
    Answer answer;
    const ErrorCode error = guarded([&] { state_->make(call, answer); });
    if (error != ErrorCode::OK) {
        state_->operations.erase(call.handle);
        answer = Answer();
    }
    answer.take(error);
    reply(answer);
    return Void();
}

void SoftKeymaster::State::make(const CallRecord& call, Answer& answer) {
    switch (call.call) {
        case Call::kGenerateKey:
        case Call::kImportKey:
            return makeKey(call, answer);
        case Call::kGetKeyCharacteristics:
            answer.characteristics.softwareEnforced =
                usableKey(call.key_blob, clientDataOf(call.client_id, call.client_data))
                    .characteristics;
            return;
        case Call::kExportKey: {
            const Key key =
                usableKey(call.key_blob, clientDataOf(call.client_id, call.client_data));
            const bool is_aes = hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES);
            throw KeymasterError{is_aes ? ErrorCode::UNSUPPORTED_KEY_FORMAT  // of a secret
                                        : ErrorCode::UNIMPLEMENTED};
        }
        case Call::kAttestKey:
            return attest(call, answer);
        case Call::kUpgradeKey:
            return upgrade(call, answer);
        case Call::kDeleteKey:
            return;
        case Call::kBegin:
            return begin(call, answer);
        case Call::kUpdate: {
            const size_t limit = options.max_update_bytes;
            answer.output = operation(call.handle)
                                .update(call.params, call.input, limit == 0 ? SIZE_MAX : limit,
                                        answer.consumed);
            return;
        }
        case Call::kFinish:
            answer.output = operation(call.handle).finish(call.params, call.input);
            operations.erase(call.handle);
            return;
        case Call::kAbort:
            require(operations.erase(call.handle) == 1, ErrorCode::INVALID_OPERATION_HANDLE);
    }
}

void SoftKeymaster::State::makeKey(const CallRecord& call, Answer& answer) {
    const bool imports = call.call == Call::kImportKey;
    require(!imports || call.format == KeyFormat::RAW, ErrorCode::UNSUPPORTED_KEY_FORMAT);
    const Key key =
        soft_keymaster::makeKey(call.params, options.patch_level, imports ? &call.input : nullptr);
    answer.output = wrapKey(rootKey(), key, clientDataOf(call.params));
    answer.characteristics.softwareEnforced = key.characteristics;
}

void SoftKeymaster::State::upgrade(const CallRecord& call, Answer& answer) {
    const Bytes client_data = clientDataOf(call.params);
    Key key = unwrapKey(rootKey(), call.key_blob, client_data);
    require(patchLevelOf(key) <= options.patch_level, ErrorCode::INVALID_ARGUMENT);
    if (patchLevelOf(key) == options.patch_level) {
        return;
    }
    for (KeyParameter& param : key.characteristics) {
        if (param.tag == Tag::OS_PATCHLEVEL) {
            param.f.integer = options.patch_level;
        }
    }
    answer.output = wrapKey(rootKey(), key, client_data);
}

void SoftKeymaster::State::attest(const CallRecord& call, Answer& answer) {
    const Params& params = call.params;
    const Key key = usableKey(call.key_blob, clientDataOf(params));
    const PkeyPtr pair = privateKey(key);
    const KeyParameter* request = findParam(params, TAG_GENERATE_CSR);
    if (request != nullptr && request->f.boolValue) {
        answer.chain = {makeCertificateRequest(pair.get())};
        return;
    }
    const KeyParameter* challenge = findParam(params, Tag::ATTESTATION_CHALLENGE);
    require(challenge != nullptr, ErrorCode::ATTESTATION_CHALLENGE_MISSING);
    require(challenge->blob.size() <= kMaxChallengeSize, ErrorCode::INVALID_INPUT_LENGTH);
    const KeyParameter* app_id = findParam(params, Tag::ATTESTATION_APPLICATION_ID);
    require(app_id != nullptr, ErrorCode::ATTESTATION_APPLICATION_ID_MISSING);
    require(!asksForDeviceIds(params), ErrorCode::CANNOT_ATTEST_IDS);
    answer.chain = authority().certify(
        pair.get(), encodeKeyDescription(key.characteristics, challenge->blob, app_id->blob));
}

void SoftKeymaster::State::begin(const CallRecord& call, Answer& answer) {
    if (call.purpose == PWHW_PURPOSE_TO_KEY || call.purpose == PWHW_PURPOSE_TO_ENCRYPTED_KEY) {
        require(call.key_blob.size() == 0, ErrorCode::INVALID_ARGUMENT);
        answer.params = convertPassword(rootKey(), call.purpose, call.params);
        return;
    }
    const Key key = usableKey(call.key_blob, clientDataOf(call.params));
    require(hasEnum(key.characteristics, Tag::ALGORITHM, Algorithm::AES), ErrorCode::UNIMPLEMENTED);
    require(operations.size() < options.max_operations, ErrorCode::TOO_MANY_OPERATIONS);
    answer.handle =
        open(std::make_unique<AesGcmOperation>(call.purpose, key, call.params, answer.params));
}

}  // namespace soft_keymaster
