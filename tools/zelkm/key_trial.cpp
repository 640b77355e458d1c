// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_trial.h"

#include <android/log.h>
#include <keymaster_check/client.h>
#include <keymaster_params.h>
#include <velt_secure_db.h>

#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "bytes.h"
#include "failure.h"
#include "store_file.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using keymaster_check::Answer;
using keymaster_check::call;
using keymaster_check::Call;
using keymaster_check::CallRecord;
using keymaster_check::KeyPurpose;

struct Context {
    soft_keymaster::SoftKeymaster* keymaster;  // null when no key is usable
    const std::string& key;
    KeyTrials::Trial trial;
};

int decryptForEngine(void* context, unsigned, unsigned char* plain, unsigned char* cipher,
                     unsigned len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                     unsigned aad_len) {
    auto* const with = static_cast<Context*>(context);
    if (with->keymaster == nullptr) {
        return with->trial.keymaster;
    }
    const keymaster_check::Params params = zelkm::gcmBeginParameters(iv);
    const keymaster_check::Params magic = zelkm::associatedDataParameters(aad, aad_len);
    keymaster_check::Bytes input(cipher, cipher + len);
    input.insert(input.end(), tag, tag + SDB_TAG_LEN);
    const CallRecord begin = {Call::kBegin, toVec(with->key), params, KeyPurpose::DECRYPT};
    const Answer begun = call(*with->keymaster, begin);
    const CallRecord finish = {Call::kFinish, {}, magic, {}, begun.handle, input};
    const Answer finished = begun.ok() ? call(*with->keymaster, finish) : begun;
    if (finished.ok()) {
        with->trial.payload = toBytes(finished.output);
        with->trial.payload.copy(reinterpret_cast<char*>(plain), len);
    }
    with->trial.keymaster = static_cast<int>(finished.error);
    return with->trial.keymaster;
}

}  // namespace

int keyStatus(soft_keymaster::SoftKeymaster& keymaster, const std::string& key) {
    return static_cast<int>(call(keymaster, {Call::kGetKeyCharacteristics, toVec(key)}).error);
}

KeyTrials::KeyTrials(const Directory& directory) {
    try {
        if (auto opened = directory.open(kRootKeyFile)) {
            root_key_.emplace(std::move(*opened));
        }
    } catch (const Refused&) {
        return;  // it is reported as a file
    }
    if (root_key_) {
        soft_keymaster::SoftKeymaster::Options options;
        // This path names the file that is open already, even when its name leads to another file
        // by now.
        options.root_key_path = "/proc/self/fd/" + std::to_string(root_key_->get());
        keymaster_.emplace(options);
    }
}

std::optional<uint32_t> KeyTrials::levelOf(const std::string& key) {
    // A keymaster tells only whether a key is older or newer than its own level. So this is a
    // binary search.
    uint64_t low = 0;
    uint64_t high = std::numeric_limits<uint32_t>::max();
    while (keymaster_ && low <= high) {
        const uint64_t level = low + (high - low) / 2;
        keymaster_->setPatchLevel(static_cast<uint32_t>(level));
        const int status = zelkm_tool::keyStatus(*keymaster_, key);
        if (status == ZELKM_OK) {
            return static_cast<uint32_t>(level);
        }
        if (status != ZELKM_KEY_REQUIRES_UPGRADE) {
            low = level + 1;  // newer, or a key of another root key
        } else if (level == 0) {
            break;
        } else {
            high = level - 1;
        }
    }
    return std::nullopt;
}

int KeyTrials::keyStatus(const std::string& key) {
    return levelOf(key) ? ZELKM_OK : zelkm_tool::keyStatus(*keymaster_, key);
}

KeyTrials::Trial KeyTrials::read(const std::string& store, const std::string& key) {
    const int status = canDecrypt() && !key.empty() ? keyStatus(key) : ZELKM_INVALID_KEY_BLOB;
    Context context = {status == ZELKM_OK ? &*keymaster_ : nullptr, key, {0, status, ""}};
    sdb_register_db_encrypt_fp(&context, decryptForEngine);
    const int level = __android_log_set_minimum_priority(ANDROID_LOG_FATAL);  // may well fail
    context.trial.engine = runEngine("SELECT (ALIAS)", store).status;
    __android_log_set_minimum_priority(level);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    return context.trial;
}

std::optional<uint32_t> keyLevel(const Directory& directory) {
    try {
        const std::optional<std::string> key = directory.read(kKeyFile);
        return key ? KeyTrials(directory).levelOf(*key) : std::nullopt;
    } catch (const Refused&) {
        return std::nullopt;  // the caller names files that cannot be read
    }
}

}  // namespace zelkm_tool
