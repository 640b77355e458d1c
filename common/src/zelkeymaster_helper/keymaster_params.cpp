// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "keymaster_params.h"

#include <cstring>
#include <new>

#include "velt_secure_db.h"

namespace zelkm {
namespace {

using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;

constexpr uint32_t kAesKeyBits = 256;
constexpr uint32_t kGcmTagBits = 8 * SDB_TAG_LEN;

// The type bits of a tag, or of a tag type.
template <typename T>
constexpr uint32_t typeOf(T tag) {
    return static_cast<uint32_t>(tag) >> 28;
}

keymaster_key_param_t enumParam(keymaster_tag_t tag, uint32_t value) {
    keymaster_key_param_t param = {};
    param.tag = tag;
    param.enumerated = value;
    return param;
}

keymaster_key_param_t uintParam(keymaster_tag_t tag, uint32_t value) {
    keymaster_key_param_t param = {};
    param.tag = tag;
    param.integer = value;
    return param;
}

keymaster_key_param_t bytesParam(keymaster_tag_t tag, const uint8_t* data, size_t len) {
    keymaster_key_param_t param = {};
    param.tag = tag;
    param.blob = {data, len};
    return param;
}

}  // namespace

HidlBytes viewOf(const uint8_t* data, size_t len) {
    HidlBytes view;
    // The keymaster takes vectors by const reference, and does not write through them.
    view.setToExternal(const_cast<uint8_t*>(data), len);
    return view;
}

bool copyBytes(const uint8_t* from, size_t len, HidlBytes* to) {
    uint8_t* copy = nullptr;
    if (len != 0) {
        copy = new (std::nothrow) uint8_t[len];
        if (copy == nullptr) {
            return false;
        }
        std::memcpy(copy, from, len);
    }
    to->setToExternal(copy, len, /*shouldOwn=*/true);
    return true;
}

HidlParams kmParamSet2Hidl(const keymaster_key_param_set_t& set) {
    HidlParams result;
    if (set.length == 0 || set.params == nullptr) {
        return result;
    }
    KeyParameter* converted = new (std::nothrow) KeyParameter[set.length]();
    if (converted == nullptr) {
        return result;
    }
    result.setToExternal(converted, set.length, /*shouldOwn=*/true);

    for (size_t i = 0; i < set.length; ++i) {
        keymaster_key_param_t& from = set.params[i];
        KeyParameter& to = converted[i];
        to.tag = static_cast<Tag>(from.tag);
        switch (typeOf(from.tag)) {
            case typeOf(KM_ENUM):
            case typeOf(KM_ENUM_REP):
                to.f.integer = from.enumerated;
                break;
            case typeOf(KM_UINT):
            case typeOf(KM_UINT_REP):
                to.f.integer = from.integer;
                break;
            case typeOf(KM_ULONG):
            case typeOf(KM_ULONG_REP):
                to.f.longInteger = from.long_integer;
                break;
            case typeOf(KM_DATE):
                to.f.dateTime = from.date_time;
                break;
            case typeOf(KM_BOOL):
                to.f.boolValue = from.boolean;
                break;
            case typeOf(KM_BIGNUM):
            case typeOf(KM_BYTES):
                to.blob.setToExternal(const_cast<uint8_t*>(from.blob.data), from.blob.data_length);
                break;
            default:
                from.tag = KM_TAG_INVALID;
                break;
        }
    }
    return result;
}

HidlParams dbKeyParameters() {
    keymaster_key_param_t params[] = {
        enumParam(KM_TAG_ALGORITHM, KM_ALGORITHM_AES),
        uintParam(KM_TAG_KEY_SIZE, kAesKeyBits),
        enumParam(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
        enumParam(KM_TAG_PADDING, KM_PAD_NONE),
        enumParam(KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT),
        enumParam(KM_TAG_PURPOSE, KM_PURPOSE_DECRYPT),
        uintParam(KM_TAG_MIN_MAC_LENGTH, kGcmTagBits),
    };
    return kmParamSet2Hidl({params, sizeof(params) / sizeof(params[0])});
}

HidlParams gcmBeginParameters(const uint8_t* nonce) {
    keymaster_key_param_t params[] = {
        enumParam(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
        enumParam(KM_TAG_PADDING, KM_PAD_NONE),
        uintParam(KM_TAG_MAC_LENGTH, kGcmTagBits),
        bytesParam(KM_TAG_NONCE, nonce, SDB_IV_LEN),
    };
    const size_t count = sizeof(params) / sizeof(params[0]);
    return kmParamSet2Hidl({params, nonce != nullptr ? count : count - 1});
}

HidlParams associatedDataParameters(const uint8_t* data, size_t len) {
    keymaster_key_param_t params[] = {bytesParam(KM_TAG_ASSOCIATED_DATA, data, len)};
    return kmParamSet2Hidl({params, 1});
}

HidlParams withBoolParameter(const HidlParams& params, Tag tag) {
    HidlParams result;
    KeyParameter* list = new (std::nothrow) KeyParameter[params.size() + 1]();
    if (list == nullptr) {
        return result;
    }
    result.setToExternal(list, params.size() + 1, /*shouldOwn=*/true);
    for (size_t i = 0; i < params.size(); ++i) {
        list[i].tag = params[i].tag;
        list[i].f = params[i].f;
        list[i].blob = viewOf(params[i].blob.data(), params[i].blob.size());
    }
    list[params.size()].tag = tag;
    list[params.size()].f.boolValue = true;
    return result;
}

const KeyParameter* findParameter(const HidlParams& params, Tag tag) {
    for (size_t i = 0; i < params.size(); ++i) {
        if (params[i].tag == tag) {
            return &params[i];
        }
    }
    return nullptr;
}

}  // namespace zelkm
