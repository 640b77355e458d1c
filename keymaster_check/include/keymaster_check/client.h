// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A small client of a keymaster: parameters, and calls whose answer is one value.
//
//     const Params params = {param(Tag::ALGORITHM, Algorithm::AES), param(Tag::KEY_SIZE, 256)};
//     const Answer made = call([&](auto cb) { return keymaster.generateKey(params, cb); });
//     if (made.ok()) { use(made.output); }

#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace keymaster_check {

using Bytes = std::vector<uint8_t>;
using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyCharacteristics;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::Tag;
using Params = android::hardware::hidl_vec<KeyParameter>;

// The value is a number, an enumerator or a bool, or else a container of bytes.
template <typename Value>
KeyParameter param(Tag tag, const Value& value) {
    KeyParameter made = {};
    made.tag = tag;
    if constexpr (std::is_arithmetic_v<Value> || std::is_enum_v<Value>) {
        made.f.longInteger = static_cast<uint64_t>(value);  // both sides are little-endian
    } else {
        made.blob = android::hardware::hidl_vec<uint8_t>(value.begin(), value.end());
    }
    return made;
}

// The parameters of the library's database key, in the library's order.
inline std::vector<KeyParameter> databaseKeyParams() {
    using namespace android::hardware::keymaster::V4_0;
    return {param(Tag::ALGORITHM, Algorithm::AES),    param(Tag::KEY_SIZE, 256),
            param(Tag::BLOCK_MODE, BlockMode::GCM),   param(Tag::PADDING, PaddingMode::NONE),
            param(Tag::PURPOSE, KeyPurpose::ENCRYPT), param(Tag::PURPOSE, KeyPurpose::DECRYPT),
            param(Tag::MIN_MAC_LENGTH, 128)};
}

// Those with which an operation under that key begins.
inline std::vector<KeyParameter> gcmParams() {
    using namespace android::hardware::keymaster::V4_0;
    return {param(Tag::BLOCK_MODE, BlockMode::GCM), param(Tag::PADDING, PaddingMode::NONE),
            param(Tag::MAC_LENGTH, 128)};
}

// The first parameter with this tag, or null.
inline const KeyParameter* findParam(const Params& params, Tag tag) {
    const auto found = std::find_if(params.begin(), params.end(),
                                    [tag](const KeyParameter& entry) { return entry.tag == tag; });
    return found == params.end() ? nullptr : &*found;
}

// The bytes of that parameter; empty when there is none.
inline Bytes bytesOf(const Params& params, Tag tag) {
    const KeyParameter* found = findParam(params, tag);
    return found == nullptr ? Bytes() : Bytes(found->blob);
}

// What a call brought. Members that the call does not have are empty.
struct Answer {
    bool transport = true;                       // the call itself succeeded
    bool arrived = false;                        // and its callback ran before it returned
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;  // also when nothing arrived
    std::string failure;                         // why nothing arrived
    Bytes output;                                // of an operation; a key blob; exported material
    std::vector<KeyParameter> params;
    uint64_t handle = 0;
    uint32_t consumed = 0;
    std::vector<Bytes> chain;
    KeyCharacteristics characteristics;

    bool ok() const { return arrived && error == ErrorCode::OK; }

    // For the callback.
    template <typename... Values>
    void take(const Values&... values) {
        arrived = true;
        (put(values), ...);
    }
    // For what the call returned. Without a whole answer nothing is left of one.
    void close(const android::hardware::Return<void>& status) {
        if (!status.isOk()) {
            *this = Answer();
            transport = false;
            failure = "the transport failed: " + status.description();
        } else if (!arrived) {
            failure = "no reply";
        }
    }

  private:
    void put(ErrorCode value) { error = value; }
    void put(uint64_t value) { handle = value; }
    void put(uint32_t value) { consumed = value; }
    void put(const android::hardware::hidl_vec<uint8_t>& value) { output = value; }
    void put(const Params& value) { params.assign(value.begin(), value.end()); }
    void put(const KeyCharacteristics& value) { characteristics = value; }
    void put(const android::hardware::hidl_vec<android::hardware::hidl_vec<uint8_t>>& value) {
        chain.assign(value.begin(), value.end());
    }
};

// Makes a call: `make` gets a callback for any call, and passes on what the call returns.
template <typename Make>
Answer call(Make make) {
    Answer answer;
    answer.close(make([&answer](const auto&... values) { answer.take(values...); }));
    return answer;
}

}  // namespace keymaster_check
