// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A small client of a keymaster: parameters, and calls whose answer is one value.
//
//     const Params params = {param(Tag::ALGORITHM, Algorithm::AES), param(Tag::KEY_SIZE, 256)};
//     const Answer made = call(keymaster, {Call::kGenerateKey, {}, params});
//     if (made.ok()) { use(made.output); }

#pragma once

#include <memory>  // which the next header needs, and on Android 9 does not include

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <keymasterV4_0/Keymaster.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace keymaster_check {

using Bytes = std::vector<uint8_t>;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::HardwareAuthToken;
using android::hardware::keymaster::V4_0::KeyCharacteristics;
using android::hardware::keymaster::V4_0::KeyFormat;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::KeyPurpose;
using android::hardware::keymaster::V4_0::Tag;
using android::hardware::keymaster::V4_0::TagType;
using android::hardware::keymaster::V4_0::VerificationToken;
using android::hardware::keymaster::V4_0::support::Keymaster;
using Params = hidl_vec<KeyParameter>;

inline TagType typeOf(Tag tag) {
    return static_cast<TagType>(static_cast<uint32_t>(tag) & 0xF0000000u);
}

// Whether the value consists of bytes; else it is numberOf() the parameter.
inline bool hasBytes(Tag tag) {
    return typeOf(tag) == TagType::BYTES || typeOf(tag) == TagType::BIGNUM;
}
inline uint64_t numberOf(const KeyParameter& param) {
    switch (typeOf(param.tag)) {
        case TagType::BOOL:
            return param.f.boolValue ? 1 : 0;
        case TagType::ULONG:
        case TagType::ULONG_REP:
        case TagType::DATE:
            return param.f.longInteger;
        default:
            return param.f.integer;
    }
}

// The value is a number, an enumerator or a bool, or else a container of bytes.
template <typename Value>
KeyParameter param(Tag tag, const Value& value) {
    KeyParameter made = {};
    made.tag = tag;
    if constexpr (std::is_arithmetic_v<Value> || std::is_enum_v<Value>) {
        made.f.longInteger = static_cast<uint64_t>(value);  // both sides are little-endian
    } else {
        made.blob = hidl_vec<uint8_t>(value.begin(), value.end());
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
template <typename List>
auto findParam(List& params, Tag tag) {
    const auto found = std::find_if(params.begin(), params.end(),
                                    [tag](const KeyParameter& entry) { return entry.tag == tag; });
    return found == params.end() ? nullptr : &*found;
}

// The bytes of that parameter; empty when there is none.
inline Bytes bytesOf(const Params& params, Tag tag) {
    const KeyParameter* found = findParam(params, tag);
    return found == nullptr ? Bytes() : Bytes(found->blob);
}

// The calls that stores and services make of a keymaster.
enum class Call {
    kGenerateKey,
    kImportKey,
    kGetKeyCharacteristics,
    kExportKey,
    kAttestKey,
    kUpgradeKey,
    kDeleteKey,
    kBegin,
    kUpdate,
    kFinish,
    kAbort,
};

// One call. Members that it does not have are zero or empty.
struct CallRecord {
    Call call;
    hidl_vec<uint8_t> key_blob = {};
    Params params = {};
    KeyPurpose purpose = {};       // begin
    uint64_t handle = 0;           // update, finish, abort
    hidl_vec<uint8_t> input = {};  // update, finish; importKey: the key

    // What no store gives.
    KeyFormat format = KeyFormat::RAW;    // importKey, exportKey
    hidl_vec<uint8_t> client_id = {};     // getKeyCharacteristics, exportKey
    hidl_vec<uint8_t> client_data = {};   // the same
    hidl_vec<uint8_t> signature = {};     // finish
    HardwareAuthToken auth_token = {};    // begin, update, finish
    VerificationToken verification = {};  // update, finish
};

// Makes the call; `callback` takes the values of any call.
template <typename Callback>
Return<void> send(Keymaster& keymaster, const CallRecord& call, Callback callback) {
    const hidl_vec<uint8_t>& blob = call.key_blob;
    const auto reply = [&callback](const Return<ErrorCode>& code) -> Return<void> {
        if (!code.isOk()) {
            return android::hardware::Status::fromStatusT(android::DEAD_OBJECT);
        }
        callback(ErrorCode(code));
        return android::hardware::Void();
    };
    switch (call.call) {
        case Call::kGenerateKey:
            return keymaster.generateKey(call.params, callback);
        case Call::kImportKey:
            return keymaster.importKey(call.params, call.format, call.input, callback);
        case Call::kGetKeyCharacteristics:
            return keymaster.getKeyCharacteristics(blob, call.client_id, call.client_data,
                                                   callback);
        case Call::kExportKey:
            return keymaster.exportKey(call.format, blob, call.client_id, call.client_data,
                                       callback);
        case Call::kAttestKey:
            return keymaster.attestKey(blob, call.params, callback);
        case Call::kUpgradeKey:
            return keymaster.upgradeKey(blob, call.params, callback);
        case Call::kDeleteKey:
            return reply(keymaster.deleteKey(blob));
        case Call::kBegin:
            return keymaster.begin(call.purpose, blob, call.params, call.auth_token, callback);
        case Call::kUpdate:
            return keymaster.update(call.handle, call.params, call.input, call.auth_token,
                                    call.verification, callback);
        case Call::kFinish:
            return keymaster.finish(call.handle, call.params, call.input, call.signature,
                                    call.auth_token, call.verification, callback);
        case Call::kAbort:
            return reply(keymaster.abort(call.handle));
    }
    return android::hardware::Void();
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
    std::vector<hidl_vec<uint8_t>> chain;
    KeyCharacteristics characteristics;

    bool ok() const { return arrived && error == ErrorCode::OK; }

    // For the callback.
    template <typename... Values>
    void take(const Values&... values) {
        arrived = true;
        (put(values), ...);
    }
    // For what the call returned. Without a whole answer nothing is left of one.
    void close(const Return<void>& status) {
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
    void put(const hidl_vec<uint8_t>& value) { output = value; }
    void put(const Params& value) { params.assign(value.begin(), value.end()); }
    void put(const KeyCharacteristics& value) { characteristics = value; }
    void put(const hidl_vec<hidl_vec<uint8_t>>& value) { chain.assign(value.begin(), value.end()); }
};

// Makes the call.
inline Answer call(Keymaster& keymaster, const CallRecord& record) {
    Answer answer;
    const auto take = [&answer](const auto&... values) { answer.take(values...); };
    answer.close(send(keymaster, record, take));
    return answer;
}

}  // namespace keymaster_check
