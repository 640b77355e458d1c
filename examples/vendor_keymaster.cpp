// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "vendor_keymaster.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace example {

using android::hardware::Void;

namespace {

constexpr size_t kKeySize = 32;
constexpr size_t kNonceSize = 12;
constexpr size_t kTagSize = 16;
// The most input that one update takes. Any limit is allowed: the library offers the rest again.
constexpr size_t kMaxInput = 64 * 1024;
// The number of operations that the hardware has room for. The platform asks for 16.
constexpr size_t kMaxOperations = 16;

// A blob is the format's version, a nonce, the encrypted key and its tag.
constexpr uint8_t kBlobVersion = 1;
constexpr size_t kNonceOffset = 1;
constexpr size_t kSealedOffset = kNonceOffset + kNonceSize;
constexpr size_t kTagOffset = kSealedOffset + kKeySize;
constexpr size_t kBlobSize = kTagOffset + kTagSize;

KeyParameter parameter(Tag tag, uint32_t value) {
    KeyParameter made = {};  // the structure has no default member initialisers
    made.tag = tag;
    made.f.integer = value;
    return made;
}

// The seven parameters that generateKey() must be given. They are the library's.
hidl_vec<KeyParameter> keyKind() {
    return {parameter(Tag::ALGORITHM, static_cast<uint32_t>(Algorithm::AES)),
            parameter(Tag::KEY_SIZE, 8 * kKeySize),
            parameter(Tag::BLOCK_MODE, static_cast<uint32_t>(BlockMode::GCM)),
            parameter(Tag::PADDING, static_cast<uint32_t>(PaddingMode::NONE)),
            parameter(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::ENCRYPT)),
            parameter(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::DECRYPT)),
            parameter(Tag::MIN_MAC_LENGTH, 8 * kTagSize)};
}

// The characteristics of a key: its parameters, and its origin. A keymaster with several kinds of
// keys would have to store this list in the blob, sealed with the key.
KeyCharacteristics characteristics() {
    std::vector<KeyParameter> list = keyKind();
    list.push_back(parameter(Tag::ORIGIN, static_cast<uint32_t>(KeyOrigin::GENERATED)));
    KeyCharacteristics made;
    made.hardwareEnforced = list;
    return made;
}

// Whether the list holds this parameter. All values here are 32-bit numbers.
bool holds(const hidl_vec<KeyParameter>& params, const KeyParameter& wanted) {
    return std::any_of(params.begin(), params.end(), [&](const KeyParameter& param) {
        return param.tag == wanted.tag && param.f.integer == wanted.f.integer;
    });
}

const KeyParameter* find(const hidl_vec<KeyParameter>& params, Tag tag) {
    const auto found = std::find_if(params.begin(), params.end(),
                                    [tag](const KeyParameter& param) { return param.tag == tag; });
    return found == params.end() ? nullptr : &*found;
}

// Checks that a key of the one kind is asked for. A keymaster refuses what it does not support,
// because a tag that it does not know may forbid something.
ErrorCode checkKind(const hidl_vec<KeyParameter>& asked) {
    const hidl_vec<KeyParameter> kind = keyKind();
    if (!holds(asked, kind[0])) {
        return ErrorCode::UNSUPPORTED_ALGORITHM;
    }
    for (const KeyParameter& param : asked) {
        if (find(kind, param.tag) == nullptr) {
            return ErrorCode::UNSUPPORTED_TAG;
        }
        if (!holds(kind, param)) {
            return ErrorCode::INVALID_ARGUMENT;
        }
    }
    for (const KeyParameter& param : kind) {
        if (!holds(asked, param)) {
            return ErrorCode::INVALID_ARGUMENT;
        }
    }
    return ErrorCode::OK;
}

// One AES-256-GCM encryption or decryption. Hardware.
class Gcm {
  public:
    Gcm(bool encrypts, const uint8_t* key, const uint8_t* nonce)
        : context_(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free),
          is_ready_(context_ != nullptr &&
                    EVP_CipherInit_ex(context_.get(), EVP_aes_256_gcm(), nullptr, key, nonce,
                                      encrypts ? 1 : 0) == 1) {}

    // Takes all associated data, before the first byte of payload.
    bool addAssociatedData(const uint8_t* data, size_t size) { return run(data, size, nullptr); }
    // Converts `size` bytes. `out` may be `in`.
    bool process(const uint8_t* in, size_t size, uint8_t* out) { return run(in, size, out); }

    bool finishEncryption(uint8_t* tag) {
        return finish() &&
               EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, tag) == 1;
    }
    // False when the tag does not match, or when libcrypto fails.
    bool finishDecryption(const uint8_t* tag) {
        return is_ready_ &&
               EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_SET_TAG, kTagSize,
                                   const_cast<uint8_t*>(tag)) == 1 &&
               finish();
    }

  private:
    bool run(const uint8_t* in, size_t size, uint8_t* out) {
        int written = 0;
        return is_ready_ && (size == 0 || EVP_CipherUpdate(context_.get(), out, &written, in,
                                                           static_cast<int>(size)) == 1);
    }
    bool finish() {
        uint8_t nothing[kTagSize];
        int written = 0;
        return is_ready_ && EVP_CipherFinal_ex(context_.get(), nothing, &written) == 1;
    }

    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context_;
    bool is_ready_;
};

// A key in the clear. It is wiped when it is no longer needed. Hardware.
struct ClearKey {
    ~ClearKey() { OPENSSL_cleanse(bytes, sizeof(bytes)); }
    uint8_t bytes[kKeySize] = {};
};

// Encrypts a key into a blob; empty when the generator or libcrypto fails.
hidl_vec<uint8_t> seal(const VendorKeymaster::DeviceKey& device_key, const ClearKey& key) {
    hidl_vec<uint8_t> blob;
    blob.resize(kBlobSize);
    blob[0] = kBlobVersion;
    uint8_t* const nonce = blob.data() + kNonceOffset;
    if (RAND_bytes(nonce, kNonceSize) != 1) {
        return {};
    }
    Gcm gcm(true, device_key.data(), nonce);
    const bool is_sealed = gcm.addAssociatedData(blob.data(), kNonceOffset) &&
                           gcm.process(key.bytes, kKeySize, blob.data() + kSealedOffset) &&
                           gcm.finishEncryption(blob.data() + kTagOffset);
    return is_sealed ? blob : hidl_vec<uint8_t>();
}

// Opens a blob. False for everything but an unchanged blob of this device.
bool open(const VendorKeymaster::DeviceKey& device_key, const hidl_vec<uint8_t>& blob,
          ClearKey& key) {
    if (blob.size() != kBlobSize || blob[0] != kBlobVersion) {
        return false;
    }
    Gcm gcm(false, device_key.data(), blob.data() + kNonceOffset);
    return gcm.addAssociatedData(blob.data(), kNonceOffset) &&
           gcm.process(blob.data() + kSealedOffset, kKeySize, key.bytes) &&
           gcm.finishDecryption(blob.data() + kTagOffset);
}

// Checks the parameters of begin(). Each refusal has a code of its own.
ErrorCode checkBegin(KeyPurpose purpose, const hidl_vec<KeyParameter>& params) {
    if (purpose != KeyPurpose::ENCRYPT && purpose != KeyPurpose::DECRYPT) {
        return ErrorCode::UNSUPPORTED_PURPOSE;  // also the vendor's purposes 101 and 102
    }
    if (!holds(params, parameter(Tag::BLOCK_MODE, static_cast<uint32_t>(BlockMode::GCM)))) {
        return ErrorCode::UNSUPPORTED_BLOCK_MODE;
    }
    if (!holds(params, parameter(Tag::PADDING, static_cast<uint32_t>(PaddingMode::NONE)))) {
        return ErrorCode::UNSUPPORTED_PADDING_MODE;
    }
    if (find(params, Tag::MAC_LENGTH) == nullptr) {
        return ErrorCode::MISSING_MAC_LENGTH;
    }
    if (!holds(params, parameter(Tag::MAC_LENGTH, 8 * kTagSize))) {
        return ErrorCode::UNSUPPORTED_MAC_LENGTH;
    }
    const KeyParameter* nonce = find(params, Tag::NONCE);
    if (purpose == KeyPurpose::ENCRYPT) {
        return nonce == nullptr ? ErrorCode::OK : ErrorCode::CALLER_NONCE_PROHIBITED;
    }
    if (nonce == nullptr) {
        return ErrorCode::MISSING_NONCE;
    }
    return nonce->blob.size() == kNonceSize ? ErrorCode::OK : ErrorCode::INVALID_NONCE;
}

}  // namespace

struct VendorKeymaster::Operation {
    Operation(bool encrypts_in, const uint8_t* key, const uint8_t* nonce)
        : encrypts(encrypts_in), gcm(encrypts_in, key, nonce) {}

    // Takes associated data and input. Appends the converted bytes to `output`.
    ErrorCode feed(const hidl_vec<KeyParameter>& params, const uint8_t* input, size_t size,
                   std::vector<uint8_t>& output) {
        const KeyParameter* data = find(params, Tag::ASSOCIATED_DATA);
        if (data != nullptr && payload_begun) {
            return ErrorCode::INVALID_TAG;
        }
        if (data != nullptr && data->blob.size() > kMaxInput) {
            return ErrorCode::INVALID_INPUT_LENGTH;
        }
        if (data != nullptr && !gcm.addAssociatedData(data->blob.data(), data->blob.size())) {
            return ErrorCode::UNKNOWN_ERROR;
        }
        payload_begun = payload_begun || size > 0;
        // When decrypting, the last 16 bytes so far may be the tag, so they wait for more input.
        pending.insert(pending.end(), input, input + size);
        const size_t kept = encrypts ? 0 : std::min(pending.size(), kTagSize);
        output.resize(pending.size() - kept);
        if (!gcm.process(pending.data(), output.size(), output.data())) {
            return ErrorCode::UNKNOWN_ERROR;
        }
        pending.erase(pending.begin(), pending.end() - static_cast<ptrdiff_t>(kept));
        return ErrorCode::OK;
    }

    // Ends the operation, after the last input.
    ErrorCode close(std::vector<uint8_t>& output) {
        if (encrypts) {
            const size_t payload = output.size();
            output.resize(payload + kTagSize);
            return gcm.finishEncryption(output.data() + payload) ? ErrorCode::OK
                                                                 : ErrorCode::UNKNOWN_ERROR;
        }
        if (pending.size() != kTagSize) {
            return ErrorCode::INVALID_INPUT_LENGTH;
        }
        return gcm.finishDecryption(pending.data()) ? ErrorCode::OK
                                                    : ErrorCode::VERIFICATION_FAILED;
    }

    const bool encrypts;
    bool payload_begun = false;
    Gcm gcm;
    std::vector<uint8_t> pending;
};

VendorKeymaster::VendorKeymaster(const DeviceKey& device_key)
    : Keymaster("android.hardware.keymaster@4.0::IKeymasterDevice", "example"),
      device_key_(device_key) {
    version_.keymasterName = "VendorKeymaster";
    version_.authorName = "example";
    version_.majorVersion = 4;
    version_.securityLevel = SecurityLevel::SOFTWARE;
}

VendorKeymaster::~VendorKeymaster() = default;

Return<void> VendorKeymaster::generateKey(const hidl_vec<KeyParameter>& key_params,
                                          generateKey_cb cb) {
    const ErrorCode error = checkKind(key_params);
    if (error != ErrorCode::OK) {
        cb(error, {}, {});
        return Void();
    }
    ClearKey key;
    hidl_vec<uint8_t> blob;
    if (RAND_bytes(key.bytes, kKeySize) == 1) {
        blob = seal(device_key_, key);
    }
    if (blob.size() == 0) {
        cb(ErrorCode::UNKNOWN_ERROR, {}, {});
        return Void();
    }
    cb(ErrorCode::OK, blob, characteristics());
    return Void();
}

Return<void> VendorKeymaster::getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                                    const hidl_vec<uint8_t>& client_id,
                                                    const hidl_vec<uint8_t>& app_data,
                                                    getKeyCharacteristics_cb cb) {
    ClearKey key;
    // No key is bound to a client, so none opens for a client.
    if (client_id.size() != 0 || app_data.size() != 0 || !open(device_key_, key_blob, key)) {
        cb(ErrorCode::INVALID_KEY_BLOB, {});
        return Void();
    }
    cb(ErrorCode::OK, characteristics());
    return Void();
}

Return<void> VendorKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                                    const hidl_vec<KeyParameter>& in_params,
                                    const HardwareAuthToken& /* auth_token */, begin_cb cb) {
    ErrorCode error = checkBegin(purpose, in_params);
    ClearKey key;
    if (error == ErrorCode::OK && !open(device_key_, key_blob, key)) {
        error = ErrorCode::INVALID_KEY_BLOB;
    }
    if (error == ErrorCode::OK && operations_.size() >= kMaxOperations) {
        error = ErrorCode::TOO_MANY_OPERATIONS;
    }
    uint64_t handle = 0;
    uint8_t fresh_nonce[kNonceSize];
    if (error == ErrorCode::OK &&
        (RAND_bytes(fresh_nonce, kNonceSize) != 1 ||
         RAND_bytes(reinterpret_cast<uint8_t*>(&handle), sizeof(handle)) != 1)) {
        error = ErrorCode::UNKNOWN_ERROR;
    }
    if (error != ErrorCode::OK) {
        cb(error, {}, 0);
        return Void();
    }
    if (purpose == KeyPurpose::DECRYPT) {
        const uint8_t* const nonce = find(in_params, Tag::NONCE)->blob.data();
        operations_[handle] = std::make_unique<Operation>(false, key.bytes, nonce);
        cb(ErrorCode::OK, {}, handle);
        return Void();
    }
    operations_[handle] = std::make_unique<Operation>(true, key.bytes, fresh_nonce);
    KeyParameter nonce = {};
    nonce.tag = Tag::NONCE;
    nonce.blob.setToExternal(fresh_nonce, kNonceSize);  // borrowed for the callback
    cb(ErrorCode::OK, {nonce}, handle);
    return Void();
}

Return<void> VendorKeymaster::update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                     const hidl_vec<uint8_t>& input,
                                     const HardwareAuthToken& /* auth_token */,
                                     const VerificationToken& /* verification_token */,
                                     update_cb cb) {
    const auto found = operations_.find(handle);
    const size_t taken = std::min(input.size(), kMaxInput);
    std::vector<uint8_t> output;
    const ErrorCode error = found == operations_.end()
                                ? ErrorCode::INVALID_OPERATION_HANDLE
                                : found->second->feed(in_params, input.data(), taken, output);
    if (error != ErrorCode::OK) {
        operations_.erase(handle);
        cb(error, 0, {}, {});
        return Void();
    }
    cb(ErrorCode::OK, static_cast<uint32_t>(taken), {}, output);
    return Void();
}

Return<void> VendorKeymaster::finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                     const hidl_vec<uint8_t>& input,
                                     const hidl_vec<uint8_t>& /* signature */,
                                     const HardwareAuthToken& /* auth_token */,
                                     const VerificationToken& /* verification_token */,
                                     finish_cb cb) {
    const auto found = operations_.find(handle);
    std::vector<uint8_t> output;
    ErrorCode error = ErrorCode::INVALID_OPERATION_HANDLE;
    if (found != operations_.end()) {
        // finish() cannot take only a part of its input. The library gives it none.
        error = input.size() > kMaxInput
                    ? ErrorCode::INVALID_INPUT_LENGTH
                    : found->second->feed(in_params, input.data(), input.size(), output);
        if (error == ErrorCode::OK) {
            error = found->second->close(output);
        }
        operations_.erase(found);  // the operation ends in any case
    }
    if (error != ErrorCode::OK) {
        output.clear();
    }
    cb(error, {}, output);
    return Void();
}

Return<void> VendorKeymaster::getHardwareInfo(getHardwareInfo_cb cb) {
    cb(version_.securityLevel, version_.keymasterName, version_.authorName);
    return Void();
}

Return<ErrorCode> VendorKeymaster::abort(uint64_t handle) {
    return operations_.erase(handle) == 1 ? ErrorCode::OK : ErrorCode::INVALID_OPERATION_HANDLE;
}

Return<ErrorCode> VendorKeymaster::deleteKey(const hidl_vec<uint8_t>& /* key_blob */) {
    return ErrorCode::OK;
}

Return<void> VendorKeymaster::upgradeKey(const hidl_vec<uint8_t>&, const hidl_vec<KeyParameter>&,
                                         upgradeKey_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<void> VendorKeymaster::attestKey(const hidl_vec<uint8_t>&, const hidl_vec<KeyParameter>&,
                                        attestKey_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<void> VendorKeymaster::getHmacSharingParameters(getHmacSharingParameters_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<void> VendorKeymaster::computeSharedHmac(const hidl_vec<HmacSharingParameters>&,
                                                computeSharedHmac_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<void> VendorKeymaster::verifyAuthorization(uint64_t, const hidl_vec<KeyParameter>&,
                                                  const HardwareAuthToken&,
                                                  verifyAuthorization_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<ErrorCode> VendorKeymaster::addRngEntropy(const hidl_vec<uint8_t>&) {
    return ErrorCode::UNIMPLEMENTED;
}

Return<void> VendorKeymaster::importKey(const hidl_vec<KeyParameter>&, KeyFormat,
                                        const hidl_vec<uint8_t>&, importKey_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {}, {});
    return Void();
}

Return<void> VendorKeymaster::importWrappedKey(const hidl_vec<uint8_t>&, const hidl_vec<uint8_t>&,
                                               const hidl_vec<uint8_t>&,
                                               const hidl_vec<KeyParameter>&, uint64_t, uint64_t,
                                               importWrappedKey_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {}, {});
    return Void();
}

Return<void> VendorKeymaster::exportKey(KeyFormat, const hidl_vec<uint8_t>&,
                                        const hidl_vec<uint8_t>&, const hidl_vec<uint8_t>&,
                                        exportKey_cb cb) {
    cb(ErrorCode::UNIMPLEMENTED, {});
    return Void();
}

Return<ErrorCode> VendorKeymaster::deleteAllKeys() {
    return ErrorCode::UNIMPLEMENTED;
}

Return<ErrorCode> VendorKeymaster::destroyAttestationIds() {
    return ErrorCode::UNIMPLEMENTED;
}

#if __has_include(<keymasterV4_1/Keymaster.h>)
Return<VendorKeymaster::LaterErrorCode> VendorKeymaster::deviceLocked(bool,
                                                                      const VerificationToken&) {
    return LaterErrorCode::UNIMPLEMENTED;
}

Return<VendorKeymaster::LaterErrorCode> VendorKeymaster::earlyBootEnded() {
    return LaterErrorCode::UNIMPLEMENTED;
}
#endif

}  // namespace example
