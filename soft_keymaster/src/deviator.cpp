// PROTECTS NOTHING: for development and tests only. Misbehaves on request.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "deviator.h"

#include <openssl/rand.h>

#include <algorithm>
#include <utility>

#include "aes_gcm.h"
#include "zelkeymaster_vendor_tags.h"

namespace soft_keymaster {

namespace {

constexpr size_t kBlockSize = 16;
constexpr size_t kMaxOperations = 16;

void remove(std::vector<KeyParameter>& params, Tag tag) {
    params.erase(std::remove_if(params.begin(), params.end(),
                                [tag](const KeyParameter& param) { return param.tag == tag; }),
                 params.end());
}

template <typename List>
void setInteger(List& params, Tag tag, size_t value) {
    for (KeyParameter& entry : params) {
        if (entry.tag == tag) {
            entry.f.integer = static_cast<uint32_t>(value);
        }
    }
}

// A nonce of the size that the inner keymaster takes. A short one gets zeros at its end, a long one
// is folded.
KeyParameter innerNonce(const Bytes& given) {
    Bytes nonce(AesGcm::kNonceSize);
    for (size_t i = 0; i < given.size(); ++i) {
        uint8_t& byte = nonce[i % nonce.size()];
        byte = static_cast<uint8_t>(byte ^ given[i]);
    }
    return param(Tag::NONCE, nonce);
}

bool beginsEncryption(const CallRecord& call) {
    return call.call == Call::kBegin && call.purpose == KeyPurpose::ENCRYPT;
}

}  // namespace

bool FaultKeymaster::Deviator::fits(const CallRecord& call) const {
    size_t size = call.key_blob.size() + call.input.size();
    for (const KeyParameter& param : call.params) {
        size += sizeof(KeyParameter) + param.blob.size();
    }
    return size <= deviation_.transport_limit;
}

std::optional<ErrorCode> FaultKeymaster::Deviator::refusal(const CallRecord& call) const {
    const size_t taken = (deviation_.open_after_errors ? open_.size() : 0) +
                         (deviation_.open_after_refusals ? refused_ : 0);
    if (call.call == Call::kBegin && taken >= kMaxOperations) {
        return ErrorCode::TOO_MANY_OPERATIONS;
    }
    return std::nullopt;
}

bool FaultKeymaster::Deviator::choosesNonce() const {
    return deviation_.fixed_nonce || deviation_.counted_nonces ||
           deviation_.nonce_size != AesGcm::kNonceSize;
}

bool FaultKeymaster::Deviator::otherTag() const {
    return deviation_.tag_size != AesGcm::kTagSize;
}

void FaultKeymaster::Deviator::adjust(CallRecord& call) {
    std::vector<KeyParameter> params = call.params;
    if (deviation_.ignored_associated_data) {
        remove(params, Tag::ASSOCIATED_DATA);
    }
    if (deviation_.ignored_csr_tag) {
        remove(params, TAG_GENERATE_CSR);
    }
    if (otherTag()) {
        setInteger(params, Tag::MIN_MAC_LENGTH, 8 * deviation_.tag_size);
        setInteger(params, Tag::MAC_LENGTH, 8 * deviation_.tag_size);
    }
    const bool makes_key = call.call == Call::kGenerateKey || call.call == Call::kImportKey;
    if (choosesNonce() && makes_key) {
        params.push_back(param(Tag::CALLER_NONCE, true));
    } else if (choosesNonce() && beginsEncryption(call)) {
        nonce_.assign(deviation_.nonce_size, 0);
        if (deviation_.counted_nonces) {
            nonce_[0] = static_cast<uint8_t>(counted_ >> 8);
            nonce_[1] = static_cast<uint8_t>(counted_++);
        } else if (!deviation_.fixed_nonce) {
            static_cast<void>(RAND_bytes(nonce_.data(), static_cast<int>(nonce_.size())));
        }
        params.push_back(innerNonce(nonce_));
    } else if (const KeyParameter* given = findParam(call.params, Tag::NONCE);
               choosesNonce() && given != nullptr) {
        remove(params, Tag::NONCE);
        params.push_back(innerNonce(given->blob));
    }
    call.params = params;
}

void FaultKeymaster::Deviator::change(const CallRecord& call, Answer& answer) {
    if (otherTag()) {  // what is listed is what was asked for
        setInteger(answer.characteristics.softwareEnforced, Tag::MIN_MAC_LENGTH,
                   8 * AesGcm::kTagSize);
    }
    if (beginsEncryption(call) && answer.error == ErrorCode::OK && choosesNonce()) {
        answer.params = {param(Tag::NONCE, nonce_)};
    }
    if (call.call == Call::kFinish && answer.error == ErrorCode::VERIFICATION_FAILED &&
        deviation_.unchecked_tag) {
        answer.error = ErrorCode::OK;
    }
    trackOperations(call, answer);
    holdBack(call, answer);
}

void FaultKeymaster::Deviator::trackOperations(const CallRecord& call, const Answer& answer) {
    const bool good = answer.error == ErrorCode::OK;
    if (call.call == Call::kBegin && good) {
        open_.insert(answer.handle);
    } else if (call.call == Call::kBegin) {
        ++refused_;
    } else if (call.call == Call::kAbort || (call.call == Call::kFinish && good)) {
        open_.erase(call.handle);
    }
}

void FaultKeymaster::Deviator::holdBack(const CallRecord& call, Answer& answer) {
    if ((call.call != Call::kUpdate && call.call != Call::kFinish) ||
        deviation_.output == Deviation::Output::kInUpdate) {
        return;
    }
    Bytes& output = answer.output;
    const Bytes held = std::exchange(held_[call.handle], {});
    output.insert(output.begin(), held.begin(), held.end());
    if (call.call == Call::kUpdate) {
        const size_t out = deviation_.output == Deviation::Output::kInFinish
                               ? 0
                               : output.size() / kBlockSize * kBlockSize;
        const auto split = output.begin() + static_cast<Bytes::difference_type>(out);
        held_[call.handle].assign(split, output.end());
        output.erase(split, output.end());
    }
}

}  // namespace soft_keymaster
