// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_store.h"

#include <android/log.h>
#include <keymaster_check/client.h>
#include <velt_secure_db.h>

#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "key_level.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using namespace android::hardware::keymaster::V4_0;
using keymaster_check::Answer;
using keymaster_check::call;
using keymaster_check::param;
using soft_keymaster::SoftKeymaster;

std::string text(const unsigned char* bytes, size_t len) {
    return {bytes, bytes + len};
}

struct Context {
    SoftKeymaster* keymaster;  // null when no key is usable
    const std::string& key;
    StoreTrials::Trial trial;
};

// Decrypts a payload with its tag behind it. Returns the keymaster's answer.
ErrorCode decrypt(Context* with, const std::string& iv, const std::string& aad,
                  const std::string& input) {
    SoftKeymaster& keymaster = *with->keymaster;
    std::vector<KeyParameter> params = keymaster_check::gcmParams();
    params.push_back(param(Tag::NONCE, iv));
    Answer answer = call([&](auto cb) {
        return keymaster.begin(KeyPurpose::DECRYPT, toVec(with->key), params, {}, cb);
    });
    const uint64_t operation = answer.handle;
    std::string plain;
    if (answer.ok()) {
        answer = call([&](auto cb) {
            return keymaster.update(operation, {param(Tag::ASSOCIATED_DATA, aad)}, toVec(input), {},
                                    {}, cb);
        });
        plain = toBytes(answer.output);
    }
    if (answer.ok()) {
        answer = call([&](auto cb) { return keymaster.finish(operation, {}, {}, {}, {}, {}, cb); });
        plain += toBytes(answer.output);
    }
    if (answer.ok()) {
        with->trial.payload = plain;
    }
    return answer.error;
}

int decryptForEngine(void* context, unsigned, unsigned char* plain, unsigned char* cipher,
                     unsigned len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                     unsigned aad_len) {
    auto* const with = static_cast<Context*>(context);
    if (with->keymaster != nullptr) {
        with->trial.keymaster =
            static_cast<int>(decrypt(with, text(iv, SDB_IV_LEN), text(aad, aad_len),
                                     text(cipher, len) + text(tag, SDB_TAG_LEN)));
        with->trial.payload.copy(reinterpret_cast<char*>(plain), len);
    }
    return with->trial.keymaster;
}

}  // namespace

StoreTrials::StoreTrials(const Directory& directory) {
    try {
        if (auto opened = directory.open(kRootKeyFile)) {
            root_key_.emplace(std::move(*opened));
        }
    } catch (const Refused&) {
        return;  // it is reported as a file
    }
    if (root_key_) {
        SoftKeymaster::Options options;
        // This path names the file that is open already, even when its name leads to another file
        // by now.
        options.root_key_path = "/proc/self/fd/" + std::to_string(root_key_->get());
        keymaster_.emplace(options);
    }
}

int StoreTrials::keyStatus(const std::string& key) {
    if (goToLevelOf(&*keymaster_, key)) {
        return ZELKM_OK;
    }
    return static_cast<int>(call([&](auto cb) {
                                return keymaster_->getKeyCharacteristics(toVec(key), {}, {}, cb);
                            }).error);
}

StoreTrials::Trial StoreTrials::read(const std::string& store, const std::string& key) {
    const int status = canDecrypt() && !key.empty() ? keyStatus(key) : ZELKM_INVALID_KEY_BLOB;
    Context context = {status == ZELKM_OK ? &*keymaster_ : nullptr, key, {0, status, ""}};
    sdb_register_db_encrypt_fp(&context, decryptForEngine);
    constexpr std::string_view kSelect = "SELECT (ALIAS)";
    uint64_t handle = 0;
    unsigned char* out = nullptr;
    unsigned out_len = 0;
    const int level = __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // may well fail
    context.trial.engine = sdb_query(kSelect.data(), static_cast<unsigned>(kSelect.size()),
                                     reinterpret_cast<const unsigned char*>(store.data()),
                                     static_cast<unsigned>(store.size()), &out, &out_len, &handle);
    __android_log_set_minimum_priority(level);
    std::free(out);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    return context.trial;
}

}  // namespace zelkm_tool
