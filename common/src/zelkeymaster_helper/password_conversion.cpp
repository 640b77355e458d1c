// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The password conversion of the secure hardware. See password_conversion.h.

#include "password_conversion.h"

#include <openssl/crypto.h>

#include <new>

namespace zelkm {
namespace {

using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;

const HidlBytes* findBlob(const HidlParams& params, Tag tag, size_t len) {
    const KeyParameter* found = findParameter(params, tag);
    return found != nullptr && found->blob.size() == len ? &found->blob : nullptr;
}

}  // namespace

PasswordParameters::PasswordParameters(PW_ENCRYPT_TYPE type, const PasswordInputs& inputs,
                                       const HidlBytes& tag) {
    const bool to_key = type == PW_ENCRYPT_TYPE_TO_KEY;
    const struct {
        Tag tag;
        const HidlBytes& bytes;
    } entries[] = {
        {PWHW_TAG_IN_1, inputs.in_1},
        {PWHW_TAG_IN_2, inputs.in_2},
        {PWHW_TAG_IN_3, inputs.in_3},
        {PWHW_TAG_IN_4, inputs.in_4},
        {to_key ? PWHW_TAG_ENCRYPTED_KEY : PWHW_TAG_KEY, inputs.material},
        {PWHW_TAG_TAG, tag},
    };
    const size_t count = sizeof(entries) / sizeof(entries[0]) - (to_key ? 1 : 0);

    KeyParameter* list = new (std::nothrow) KeyParameter[count]();
    if (list == nullptr) {
        return;
    }
    list_.setToExternal(list, count, /*shouldOwn=*/true);
    for (size_t i = 0; i < count; ++i) {
        list[i].tag = entries[i].tag;
        if (!copyBytes(entries[i].bytes.data(), entries[i].bytes.size(), &list[i].blob)) {
            wipe();
            list_ = HidlParams();
            return;
        }
    }
}

void PasswordParameters::wipe() {
    for (size_t i = 0; i < list_.size(); ++i) {
        OPENSSL_cleanse(list_[i].blob.data(), list_[i].blob.size());
    }
}

void PasswordAnswer::take(ErrorCode error, const HidlParams& out_params) {
    static constexpr uint8_t kNoRot[kRotLen] = {};
    result = static_cast<int32_t>(error);

    const HidlBytes* found_rot = findBlob(out_params, PWHW_TAG_ROT, kRotLen);
    rot_missing = found_rot == nullptr;
    bool copied = copyBytes(rot_missing ? kNoRot : found_rot->data(), kRotLen, &rot);

    if (result == ZELKM_OK && type == PW_ENCRYPT_TYPE_TO_KEY) {
        const HidlBytes* found_tag = findBlob(out_params, PWHW_TAG_TAG, kPasswordTagLen);
        if (found_tag == nullptr) {
            defect = kTag;
        } else {
            copied = copyBytes(found_tag->data(), found_tag->size(), &tag) && copied;
        }
    }
    if (result == ZELKM_OK && defect == kNone) {
        const bool to_key = type == PW_ENCRYPT_TYPE_TO_KEY;
        const KeyParameter* found =
            findParameter(out_params, to_key ? PWHW_TAG_KEY : PWHW_TAG_ENCRYPTED_KEY);
        if (found == nullptr) {
            defect = to_key ? kKey : kEncryptedKey;
        } else {
            copied = copyBytes(found->blob.data(), found->blob.size(), &material) && copied;
        }
    }

    if (defect != kNone) {
        result = ZELKM_INVALID_TAG;
    } else if (result == ZELKM_OK && !copied) {
        result = ZELKM_MEMORY_ALLOCATION_FAILED;
    }
}

}  // namespace zelkm
