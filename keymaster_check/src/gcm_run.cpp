// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "gcm_run.h"

#include <openssl/rand.h>

#include <algorithm>

#include "params.h"

namespace keymaster_check {
namespace {

using android::hardware::keymaster::V4_0::Algorithm;
using android::hardware::keymaster::V4_0::BlockMode;
using android::hardware::keymaster::V4_0::PaddingMode;

constexpr uint32_t kKeyBits = 256;
constexpr uint32_t kTagBits = 128;

Run runOperation(Caller& caller, KeyPurpose purpose, const Bytes& key, const Params& params,
                 const Bytes& input, const Bytes& associated_data, size_t cut) {
    Run run;
    const Answer begun = caller.begin(purpose, key, params);
    run.error = begun.error;
    if (!begun.ok()) {
        return run;
    }
    for (const KeyParameter& param : begun.params) {
        if (param.tag == Tag::NONCE && run.nonces++ == 0) {
            run.nonce = param.blob;
        }
    }
    run.ended = Run::End::kUpdate;
    Params first;
    if (!associated_data.empty()) {
        first = {bytesParam(Tag::ASSOCIATED_DATA, associated_data)};
    }
    size_t consumed = 0;
    do {
        const size_t offered = std::min(cut, input.size() - consumed);
        const Answer updated = caller.update(begun.handle, first, input.data() + consumed, offered);
        run.error = updated.error;
        if (!updated.ok() || updated.consumed == 0 || updated.consumed > offered ||
            caller.outOfTime()) {
            return run;
        }
        first = Params();
        consumed += updated.consumed;
        run.from_updates.insert(run.from_updates.end(), updated.bytes.begin(), updated.bytes.end());
    } while (consumed < input.size());
    const Answer finished = caller.finish(begun.handle);
    run.error = finished.error;
    run.from_finish = finished.bytes;
    run.ended = finished.ok() ? Run::End::kDone : Run::End::kFinish;
    return run;
}

}  // namespace

Params databaseKeyParams() {
    return {
        integerParam(Tag::ALGORITHM, Algorithm::AES),
        integerParam(Tag::KEY_SIZE, kKeyBits),
        integerParam(Tag::BLOCK_MODE, BlockMode::GCM),
        integerParam(Tag::PADDING, PaddingMode::NONE),
        integerParam(Tag::PURPOSE, KeyPurpose::ENCRYPT),
        integerParam(Tag::PURPOSE, KeyPurpose::DECRYPT),
        integerParam(Tag::MIN_MAC_LENGTH, kTagBits),
    };
}

Params gcmParams() {
    return {
        integerParam(Tag::BLOCK_MODE, BlockMode::GCM),
        integerParam(Tag::PADDING, PaddingMode::NONE),
        integerParam(Tag::MAC_LENGTH, kTagBits),
    };
}

Bytes Run::all() const {
    Bytes result = from_updates;
    result.insert(result.end(), from_finish.begin(), from_finish.end());
    return result;
}

std::string Run::failure() const {
    const char* const call = ended == End::kBegin    ? "begin"
                             : ended == End::kUpdate ? "update"
                                                     : "finish";
    return call + (error == 0 ? std::string(" did not take its input in time")
                              : " answered " + codeInWords(error));
}

Run encrypt(Caller& caller, const Bytes& key, const Bytes& payload, const Bytes& associated_data,
            size_t cut) {
    return runOperation(caller, KeyPurpose::ENCRYPT, key, gcmParams(), payload, associated_data,
                        cut);
}

Run decrypt(Caller& caller, const Bytes& key, const Bytes& nonce, const Bytes& input,
            const Bytes& associated_data, size_t cut) {
    std::vector<KeyParameter> params = gcmParams();
    params.push_back(bytesParam(Tag::NONCE, nonce));
    return runOperation(caller, KeyPurpose::DECRYPT, key, params, input, associated_data, cut);
}

Bytes samplePayload(size_t size) {
    Bytes payload(size);
    uint32_t state = 1;
    for (uint8_t& byte : payload) {
        state = state * 1664525 + 1013904223;  // a linear congruential generator
        byte = static_cast<uint8_t>(state >> 24);
    }
    return payload;
}

Bytes randomBytes(size_t size) {
    Bytes bytes(size);
    // On a failure the bytes are zeros. That will do: they only tell answers apart.
    static_cast<void>(RAND_bytes(bytes.data(), static_cast<int>(size)));
    return bytes;
}

Bytes sampleAssociatedData() {
    static constexpr char kMagic[] = "SOBv1.1     ";
    return Bytes(kMagic, kMagic + sizeof(kMagic) - 1);
}

Bytes altered(Bytes bytes, size_t at) {
    if (at < bytes.size()) {
        bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
    }
    return bytes;
}

}  // namespace keymaster_check
