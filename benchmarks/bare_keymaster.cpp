// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "bare_keymaster.h"

#include <algorithm>
#include <cstring>

#include "keymaster_params.h"
#include "velt_secure_db.h"

namespace bench {
namespace {

using android::hardware::Void;
using soft_keymaster::ErrorCode;
using soft_keymaster::Tag;

constexpr uint64_t kHandle = 1;

soft_keymaster::SoftKeymaster::Options optionsOf() {
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = "root_key";
    return options;
}

}  // namespace

BareKeymaster::BareKeymaster(size_t max_update_bytes)
    : SoftKeymaster(optionsOf()),
      max_update_bytes_(max_update_bytes != 0 ? max_update_bytes : SIZE_MAX) {
    held_.reserve(2 * SDB_TAG_LEN);
}

Return<void> BareKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& /*key_blob*/,
                                  const hidl_vec<KeyParameter>& in_params,
                                  const HardwareAuthToken& /*auth_token*/, begin_cb cb) {
    decrypting_ = purpose == KeyPurpose::DECRYPT;
    held_.clear();
    uint8_t iv[SDB_IV_LEN];
    if (decrypting_) {
        std::memcpy(iv, zelkm::findParameter(in_params, Tag::NONCE)->blob.data(), sizeof(iv));
    }
    cipher_.begin(decrypting_, iv);
    KeyParameter nonce;
    nonce.tag = Tag::NONCE;
    nonce.blob = zelkm::viewOf(iv, sizeof(iv));
    hidl_vec<KeyParameter> out_params;
    out_params.setToExternal(&nonce, decrypting_ ? 0 : 1);
    cb(ErrorCode::OK, out_params, kHandle);
    return Void();
}

Return<void> BareKeymaster::update(uint64_t /*handle*/, const hidl_vec<KeyParameter>& /*in_params*/,
                                   const hidl_vec<uint8_t>& input,
                                   const HardwareAuthToken& /*auth_token*/,
                                   const VerificationToken& /*verification_token*/, update_cb cb) {
    const size_t len = std::min(input.size(), max_update_bytes_);
    const size_t total = held_.size() + len;
    const size_t leaving = decrypting_ ? total - std::min<size_t>(total, SDB_TAG_LEN) : len;
    if (output_.size() < leaving) {
        output_.resize(leaving);
    }
    const size_t from_held = std::min(leaving, held_.size());
    const size_t from_input = leaving - from_held;
    if (from_held != 0) {
        cipher_.update(held_.data(), from_held, output_.data());
        held_.erase(held_.begin(), held_.begin() + static_cast<ptrdiff_t>(from_held));
    }
    cipher_.update(input.data(), from_input, output_.data() + from_held);
    if (decrypting_) {
        held_.insert(held_.end(), input.data() + from_input, input.data() + len);
    }
    cb(ErrorCode::OK, static_cast<uint32_t>(len), {}, zelkm::viewOf(output_.data(), leaving));
    return Void();
}

Return<void> BareKeymaster::finish(uint64_t /*handle*/, const hidl_vec<KeyParameter>& /*in_params*/,
                                   const hidl_vec<uint8_t>& /*input*/,
                                   const hidl_vec<uint8_t>& /*signature*/,
                                   const HardwareAuthToken& /*auth_token*/,
                                   const VerificationToken& /*verification_token*/, finish_cb cb) {
    if (decrypting_) {
        const bool good = held_.size() == SDB_TAG_LEN && cipher_.finish(held_.data());
        cb(good ? ErrorCode::OK : ErrorCode::VERIFICATION_FAILED, {}, {});
        return Void();
    }
    uint8_t tag[SDB_TAG_LEN];
    check(cipher_.finish(tag), "encryption");
    cb(ErrorCode::OK, {}, zelkm::viewOf(tag, sizeof(tag)));
    return Void();
}

}  // namespace bench
