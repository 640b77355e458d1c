// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_trial.h"

#include <android/log.h>
#include <velt_secure_db.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "store_file.h"

namespace zelkm_tool {
namespace {

using namespace android::hardware::keymaster::V4_0;

constexpr uint32_t kTagBits = 128;

KeyParameter number(Tag tag, uint32_t value) {
    KeyParameter param = {};
    param.tag = tag;
    param.f.integer = value;
    return param;
}

KeyParameter blob(Tag tag, const std::string& bytes) {
    KeyParameter param = {};
    param.tag = tag;
    param.blob = toVec(bytes);
    return param;
}

}  // namespace

StoreTrials::StoreTrials(const Directory& directory, const SessionOptions& options)
    : root_key_(directory.open(kRootKeyFile)) {
    if (root_key_) {
        soft_keymaster::SoftKeymaster::Options with_key = keymasterOptions(options);
        // This path names the file that is open already, even when its name leads to another file
        // by now.
        with_key.root_key_path = "/proc/self/fd/" + std::to_string(root_key_->get());
        keymaster_.emplace(with_key);
    }
}

const StoreTrials::UsableKey& StoreTrials::usable(const std::string& key) {
    const auto known = keys_.find(key);
    if (known != keys_.end()) {
        return known->second;
    }
    UsableKey result = {ZELKM_UNKNOWN_ERROR, key};
    keymaster_->getKeyCharacteristics(toVec(key), {}, {}, [&](ErrorCode error, const auto&) {
        result.status = static_cast<int>(error);
    });
    if (result.status == ZELKM_KEY_REQUIRES_UPGRADE) {
        keymaster_->upgradeKey(toVec(key), {}, [&](ErrorCode error, const auto& upgraded) {
            result = {static_cast<int>(error), toBytes(upgraded)};
        });
    }
    return keys_[key] = result;
}

int StoreTrials::keyStatus(const std::string& key) {
    return usable(key).status;
}

StoreTrials::Decryption StoreTrials::decrypt(const std::string& store, const std::string& key) {
    const UsableKey& with = usable(key);
    if (with.status != ZELKM_OK) {
        return {with.status, ""};
    }
    const StoreHeader header = *parseStoreHeader(store);
    ErrorCode result = ErrorCode::UNKNOWN_ERROR;
    uint64_t operation = 0;
    const std::vector<KeyParameter> params = {
        number(Tag::BLOCK_MODE, static_cast<uint32_t>(BlockMode::GCM)),
        number(Tag::PADDING, static_cast<uint32_t>(PaddingMode::NONE)),
        number(Tag::MAC_LENGTH, kTagBits), blob(Tag::NONCE, header.iv)};
    keymaster_->begin(KeyPurpose::DECRYPT, toVec(with.blob), params, HardwareAuthToken(),
                      [&](ErrorCode error, const auto&, uint64_t handle) {
                          result = error;
                          operation = handle;
                      });
    std::string plain;
    if (result == ErrorCode::OK) {
        const std::string input(storePayload(store, header));
        const std::vector<KeyParameter> magic = {blob(Tag::ASSOCIATED_DATA, header.magic)};
        keymaster_->update(operation, magic, toVec(input + header.tag), HardwareAuthToken(),
                           VerificationToken(),
                           [&](ErrorCode error, uint32_t, const auto&, const auto& output) {
                               result = error;
                               plain = toBytes(output);
                           });
    }
    if (result == ErrorCode::OK) {
        keymaster_->finish(operation, {}, {}, {}, HardwareAuthToken(), VerificationToken(),
                           [&](ErrorCode error, const auto&, const auto& output) {
                               result = error;
                               plain += toBytes(output);
                           });
    }
    return {static_cast<int>(result), result == ErrorCode::OK ? plain : ""};
}

int StoreTrials::open(const std::string& store, const std::string& key) {
    struct Context {
        StoreTrials* trials;
        const std::string& store;
        const std::string& key;
    } context = {this, store, key};
    sdb_register_db_encrypt_fp(
        &context, [](void* ctx, unsigned, unsigned char* plain, unsigned char*, unsigned len,
                     unsigned char*, unsigned char*, unsigned char*, unsigned) {
            const auto* with = static_cast<Context*>(ctx);
            const Decryption decryption = with->trials->decrypt(with->store, with->key);
            decryption.payload.copy(reinterpret_cast<char*>(plain), len);
            return decryption.status;
        });
    constexpr std::string_view kSelect = "SELECT (ALIAS)";
    uint64_t handle = 0;
    unsigned char* out = nullptr;
    unsigned out_len = 0;
    const int level = __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // may well fail
    const int result = sdb_query(kSelect.data(), static_cast<unsigned>(kSelect.size()),
                                 reinterpret_cast<const unsigned char*>(store.data()),
                                 static_cast<unsigned>(store.size()), &out, &out_len, &handle);
    __android_log_set_minimum_priority(level);
    std::free(out);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    return result;
}

}  // namespace zelkm_tool
