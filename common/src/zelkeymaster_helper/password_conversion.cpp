// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "password_conversion.h"

#include <openssl/crypto.h>

#include <new>

namespace zelkm {
namespace {

using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;

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

}  // namespace zelkm
