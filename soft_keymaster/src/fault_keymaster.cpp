// PROTECTS NOTHING: for development and tests only. Misbehaves on request.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "soft_keymaster/fault_keymaster.h"

#include <openssl/rand.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <thread>
#include <utility>

#include "aes_gcm.h"
#include "params.h"
#include "zelkeymaster_vendor_tags.h"

namespace soft_keymaster {

using android::hardware::Status;
using android::hardware::Void;

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

// Makes a keymaster deviate: changes the calls that it gets, and its answers.
class FaultKeymaster::Deviator {
  public:
    explicit Deviator(const Deviation& deviation = {}) : deviation_(deviation) {}

    // False when the call's arguments are too large for the transport.
    bool fits(const CallRecord& call) const {
        size_t size = call.key_blob.size() + call.input.size();
        for (const KeyParameter& param : call.params) {
            size += sizeof(KeyParameter) + param.blob.size();
        }
        return size <= deviation_.transport_limit;
    }

    // Whether the deviation leaves room for the operation that the call begins, if it is a begin.
    bool hasRoom(const CallRecord& call) const {
        const size_t taken = (deviation_.open_after_errors ? open_.size() : 0) +
                             (deviation_.open_after_refusals ? refused_ : 0);
        return call.call != Call::kBegin || taken < kMaxOperations;
    }

    // Changes the parameters for the inner keymaster. For an encryption, also chooses the nonce.
    void adjust(CallRecord& call) {
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

    // Changes the inner keymaster's answer to the call.
    void change(const CallRecord& call, Answer& answer) {
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

  private:
    bool choosesNonce() const {
        return deviation_.fixed_nonce || deviation_.counted_nonces ||
               deviation_.nonce_size != AesGcm::kNonceSize;
    }

    bool otherTag() const { return deviation_.tag_size != AesGcm::kTagSize; }

    // Notes which operations are open.
    void trackOperations(const CallRecord& call, const Answer& answer) {
        const bool good = answer.error == ErrorCode::OK;
        if (call.call == Call::kBegin && good) {
            open_.insert(answer.handle);
        } else if (call.call == Call::kBegin) {
            ++refused_;
        } else if (call.call == Call::kAbort || (call.call == Call::kFinish && good)) {
            open_.erase(call.handle);
        }
    }

    void holdBack(const CallRecord& call, Answer& answer) {
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

    const Deviation deviation_;
    Bytes nonce_;                     // of the encryption that begins
    std::map<uint64_t, Bytes> held_;  // output not returned yet, by operation
    std::set<uint64_t> open_;
    uint16_t counted_ = 0;  // nonces
    size_t refused_ = 0;    // begins
};

FaultKeymaster::FaultKeymaster(Keymaster& inner)
    : StoreKeymaster(inner.descriptor(), inner.instanceName()),
      inner_(inner),
      deviator_(std::make_unique<Deviator>()) {}

FaultKeymaster::~FaultKeymaster() = default;

void FaultKeymaster::plan(Call call, size_t nth, Fault fault) {
    Plan& plan = plans_[call];
    plan.nth.insert_or_assign(plan.count + nth, std::move(fault));
}

void FaultKeymaster::planEach(Call call, Fault fault) {
    plans_[call].each = std::move(fault);
}

void FaultKeymaster::planEachCall(const Fault& fault) {
    for (int call = 0; call <= static_cast<int>(Call::kAbort); ++call) {
        planEach(static_cast<Call>(call), fault);
    }
}

void FaultKeymaster::deviate(const Deviation& deviation) {
    deviator_ = std::make_unique<Deviator>(deviation);
}

void FaultKeymaster::reset() {
    plans_.clear();
    deviate(Deviation());
    alter_ = nullptr;
    calls_.clear();
}

std::vector<CallRecord> FaultKeymaster::calls(Call call) const {
    std::vector<CallRecord> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [call](const CallRecord& made) { return made.call == call; });
    return found;
}

Return<void> FaultKeymaster::handle(const CallRecord& made, const Reply& reply) {
    calls_.push_back(made);
    Plan& plan = plans_[made.call];
    const auto found = plan.nth.find(++plan.count);
    const Fault fault = found != plan.nth.end() ? found->second : plan.each;
    if (fault.callback == Fault::Callback::kNever) {
        return fault.call_fails ? Return<void>(transportFailure()) : Void();
    }
    Answer answer;
    Return<void> status = Void();
    if (fault.error_code) {
        answer.take(*fault.error_code);
    } else if (!deviator_->fits(made)) {
        return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    } else if (!deviator_->hasRoom(made)) {
        answer.take(ErrorCode::TOO_MANY_OPERATIONS);
    } else {
        CallRecord sent = made;
        deviator_->adjust(sent);
        if (alter_) {
            alter_(sent);
        }
        status = keymaster_check::send(
            inner_, sent, [&answer](const auto&... values) { answer.take(values...); });
        deviator_->change(made, answer);
        if (fault.change && answer.arrived) {
            fault.change(answer, made);
            answer.arrived = true;  // also when the whole answer was replaced
        }
    }
    if (answer.arrived) {
        std::this_thread::sleep_for(fault.delay);
        if (fault.callback == Fault::Callback::kOnThread) {
            std::thread([&] { reply(answer); }).join();
        } else {
            reply(answer);
        }
        if (fault.callback == Fault::Callback::kTwice) {
            reply(answer);
        }
    }
    return fault.call_fails && status.isOk() ? Return<void>(transportFailure()) : std::move(status);
}

}  // namespace soft_keymaster
