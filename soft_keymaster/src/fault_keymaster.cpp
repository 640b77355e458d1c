// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "soft_keymaster/fault_keymaster.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "deviator.h"

namespace soft_keymaster {

using android::hardware::hidl_string;
using android::hardware::Status;
using android::hardware::Void;
using android::hardware::keymaster::V4_0::SecurityLevel;

namespace {

Status transportFailure() {
    return Status::fromStatusT(android::DEAD_OBJECT);
}

CallRecord record(Call call, const hidl_vec<uint8_t>& key_blob = {},
                  const hidl_vec<KeyParameter>& params = {}) {
    CallRecord made{};
    made.call = call;
    made.key_blob = key_blob;
    made.params = params;
    return made;
}

CallRecord operationRecord(Call call, uint64_t handle, const hidl_vec<KeyParameter>& params,
                           const hidl_vec<uint8_t>& input) {
    CallRecord made = record(call, {}, params);
    made.handle = handle;
    made.input = input;
    return made;
}

// Receives the answer of a forwarded call. Empty until the answer comes.
using Slot = std::optional<Answer>;

Answer& fill(Slot& slot, ErrorCode error) {
    slot.emplace();
    slot->error = error;
    return *slot;
}

void put(Answer& answer, uint64_t value) {
    answer.handle = value;
}
void put(Answer& answer, uint32_t value) {
    answer.consumed = value;
}
void put(Answer& answer, const hidl_vec<uint8_t>& value) {
    answer.output = value;
}
void put(Answer& answer, const hidl_vec<KeyParameter>& value) {
    answer.params = value;
}
void put(Answer& answer, const hidl_vec<hidl_vec<uint8_t>>& value) {
    answer.chain = value;
}
void put(Answer& answer, const KeyCharacteristics& value) {
    answer.characteristics = value;
}
void put(Answer& answer, const HmacSharingParameters& value) {
    answer.hmac_params = value;
}
void put(Answer& answer, const VerificationToken& value) {
    answer.token = value;
}

// A callback for any of the calls. It fills the slot.
auto into(Slot& slot) {
    return [&slot](ErrorCode error, const auto&... values) {
        Answer& answer = fill(slot, error);
        (put(answer, values), ...);
    };
}

}  // namespace

FaultKeymaster::FaultKeymaster(Keymaster& inner)
    : Keymaster(inner.descriptor(), inner.instanceName()),
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
    calls_.clear();
}

std::vector<CallRecord> FaultKeymaster::calls(Call call) const {
    std::vector<CallRecord> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [call](const CallRecord& made) { return made.call == call; });
    return found;
}

std::optional<Fault> FaultKeymaster::enter(CallRecord made) {
    Plan& plan = plans_[made.call];
    calls_.push_back(std::move(made));
    const auto found = plan.nth.find(++plan.count);
    if (found != plan.nth.end()) {
        return found->second;
    }
    return plan.each;
}

// `forward` calls the inner keymaster with a callback that fills a slot. `reply` runs the caller's
// callback with an answer. When the inner transport fails, that failure is passed on unchanged.
template <typename Forward, typename Reply>
Return<void> FaultKeymaster::answer(CallRecord made, Forward forward, Reply reply) {
    const std::optional<Fault> fault = enter(std::move(made));
    if (fault && fault->kind == Fault::Kind::kTransportBeforeCallback) {
        return transportFailure();
    }
    if (fault && fault->kind == Fault::Kind::kNoCallback) {
        return Void();
    }
    Slot slot;
    if (fault && fault->kind == Fault::Kind::kAnswerError) {
        reply(fill(slot, fault->code));
        return Void();
    }
    const CallRecord& call = calls_.back();
    if (!deviator_->fits(call)) {
        return Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
    }
    if (const auto refusal = deviator_->refusal(call)) {
        reply(fill(slot, *refusal));
        return Void();
    }
    Return<void> status = forward(slot);
    if (slot.has_value()) {
        deviator_->change(call, *slot);
        if (fault && fault->kind == Fault::Kind::kAlter) {
            fault->change(*slot);
        }
        if (fault && fault->kind == Fault::Kind::kSlow) {
            std::this_thread::sleep_for(fault->delay);
        }
        if (fault && fault->kind == Fault::Kind::kCallbackOnThread) {
            std::thread([&] { reply(*slot); }).join();
        } else {
            reply(*slot);
        }
        if (fault && fault->kind == Fault::Kind::kCallbackTwice) {
            reply(*slot);
        }
    }
    if (fault && fault->kind == Fault::Kind::kTransportAfterCallback && status.isOk()) {
        return transportFailure();
    }
    return status;
}

// For calls that return one code and have no callback. When the transport fails, the code is lost.
template <typename Forward>
Return<ErrorCode> FaultKeymaster::answerCode(CallRecord made, Forward forward) {
    const std::optional<Fault> fault = enter(std::move(made));
    if (!fault) {
        return forward();
    }
    if (fault->kind == Fault::Kind::kAnswerError) {
        return fault->code;
    }
    if (fault->kind == Fault::Kind::kTransportBeforeCallback) {
        return transportFailure();
    }
    if (fault->kind == Fault::Kind::kSlow) {
        std::this_thread::sleep_for(fault->delay);
    }
    Return<ErrorCode> inner = forward();
    if (fault->kind == Fault::Kind::kTransportAfterCallback && inner.isOk()) {
        return transportFailure();
    }
    if (fault->kind == Fault::Kind::kAlter && inner.isOk()) {
        Slot slot;
        fault->change(fill(slot, inner));
        return slot->error;
    }
    return inner;
}

Return<void> FaultKeymaster::getHardwareInfo(getHardwareInfo_cb cb) {
    SecurityLevel level = SecurityLevel::SOFTWARE;
    hidl_string name;
    hidl_string author;
    return answer(
        record(Call::kGetHardwareInfo),
        [&](Slot& slot) {
            return inner_.getHardwareInfo(
                [&](auto inner_level, auto& inner_name, auto& inner_author) {
                    fill(slot, ErrorCode::OK);
                    level = inner_level;
                    name = inner_name;
                    author = inner_author;
                });
        },
        [&](const Answer&) { cb(level, name, author); });
}

Return<void> FaultKeymaster::getHmacSharingParameters(getHmacSharingParameters_cb cb) {
    return answer(
        record(Call::kGetHmacSharingParameters),
        [&](Slot& slot) { return inner_.getHmacSharingParameters(into(slot)); },
        [&](const Answer& a) { cb(a.error, a.hmac_params); });
}

Return<void> FaultKeymaster::computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                               computeSharedHmac_cb cb) {
    return answer(
        record(Call::kComputeSharedHmac),
        [&](Slot& slot) { return inner_.computeSharedHmac(params, into(slot)); },
        [&](const Answer& a) { cb(a.error, a.output); });
}

Return<void> FaultKeymaster::verifyAuthorization(uint64_t handle,
                                                 const hidl_vec<KeyParameter>& params,
                                                 const HardwareAuthToken& auth_token,
                                                 verifyAuthorization_cb cb) {
    return answer(
        operationRecord(Call::kVerifyAuthorization, handle, params, {}),
        [&](Slot& slot) {
            return inner_.verifyAuthorization(handle, params, auth_token, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.token); });
}

Return<ErrorCode> FaultKeymaster::addRngEntropy(const hidl_vec<uint8_t>& data) {
    return answerCode(operationRecord(Call::kAddRngEntropy, 0, {}, data),
                      [&] { return inner_.addRngEntropy(data); });
}

Return<void> FaultKeymaster::generateKey(const hidl_vec<KeyParameter>& key_params,
                                         generateKey_cb cb) {
    return answer(
        record(Call::kGenerateKey, {}, key_params),
        [&](Slot& slot) {
            return inner_.generateKey(deviator_->adjustedParams(calls_.back()), into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.output, a.characteristics); });
}

Return<void> FaultKeymaster::importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                                       const hidl_vec<uint8_t>& key_data, importKey_cb cb) {
    return answer(
        record(Call::kImportKey, {}, key_params),
        [&](Slot& slot) { return inner_.importKey(key_params, format, key_data, into(slot)); },
        [&](const Answer& a) { cb(a.error, a.output, a.characteristics); });
}

Return<void> FaultKeymaster::importWrappedKey(const hidl_vec<uint8_t>& wrapped_key_data,
                                              const hidl_vec<uint8_t>& wrapping_key_blob,
                                              const hidl_vec<uint8_t>& masking_key,
                                              const hidl_vec<KeyParameter>& unwrapping_params,
                                              uint64_t password_sid, uint64_t biometric_sid,
                                              importWrappedKey_cb cb) {
    return answer(
        record(Call::kImportWrappedKey, wrapping_key_blob, unwrapping_params),
        [&](Slot& slot) {
            return inner_.importWrappedKey(wrapped_key_data, wrapping_key_blob, masking_key,
                                           unwrapping_params, password_sid, biometric_sid,
                                           into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.output, a.characteristics); });
}

Return<void> FaultKeymaster::getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                                   const hidl_vec<uint8_t>& client_id,
                                                   const hidl_vec<uint8_t>& app_data,
                                                   getKeyCharacteristics_cb cb) {
    return answer(
        record(Call::kGetKeyCharacteristics, key_blob),
        [&](Slot& slot) {
            return inner_.getKeyCharacteristics(key_blob, client_id, app_data, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.characteristics); });
}

Return<void> FaultKeymaster::exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data, exportKey_cb cb) {
    return answer(
        record(Call::kExportKey, key_blob),
        [&](Slot& slot) {
            return inner_.exportKey(format, key_blob, client_id, app_data, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.output); });
}

Return<void> FaultKeymaster::attestKey(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<KeyParameter>& attest_params,
                                       attestKey_cb cb) {
    return answer(
        record(Call::kAttestKey, key_blob, attest_params),
        [&](Slot& slot) {
            return inner_.attestKey(key_blob, deviator_->adjustedParams(calls_.back()), into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.chain); });
}

Return<void> FaultKeymaster::upgradeKey(const hidl_vec<uint8_t>& key_blob,
                                        const hidl_vec<KeyParameter>& upgrade_params,
                                        upgradeKey_cb cb) {
    return answer(
        record(Call::kUpgradeKey, key_blob, upgrade_params),
        [&](Slot& slot) { return inner_.upgradeKey(key_blob, upgrade_params, into(slot)); },
        [&](const Answer& a) { cb(a.error, a.output); });
}

Return<ErrorCode> FaultKeymaster::deleteKey(const hidl_vec<uint8_t>& key_blob) {
    return answerCode(record(Call::kDeleteKey, key_blob),
                      [&] { return inner_.deleteKey(key_blob); });
}

Return<ErrorCode> FaultKeymaster::deleteAllKeys() {
    return answerCode(record(Call::kDeleteAllKeys), [&] { return inner_.deleteAllKeys(); });
}

Return<ErrorCode> FaultKeymaster::destroyAttestationIds() {
    return answerCode(record(Call::kDestroyAttestationIds),
                      [&] { return inner_.destroyAttestationIds(); });
}

Return<void> FaultKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                                   const hidl_vec<KeyParameter>& in_params,
                                   const HardwareAuthToken& auth_token, begin_cb cb) {
    CallRecord made = record(Call::kBegin, key_blob, in_params);
    made.purpose = purpose;
    return answer(
        std::move(made),
        [&](Slot& slot) {
            return inner_.begin(purpose, key_blob, deviator_->adjustedParams(calls_.back()),
                                auth_token, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.params, a.handle); });
}

Return<void> FaultKeymaster::update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, update_cb cb) {
    return answer(
        operationRecord(Call::kUpdate, handle, in_params, input),
        [&](Slot& slot) {
            return inner_.update(handle, deviator_->adjustedParams(calls_.back()), input,
                                 auth_token, verification_token, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.consumed, a.params, a.output); });
}

Return<void> FaultKeymaster::finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const hidl_vec<uint8_t>& signature,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, finish_cb cb) {
    return answer(
        operationRecord(Call::kFinish, handle, in_params, input),
        [&](Slot& slot) {
            return inner_.finish(handle, deviator_->adjustedParams(calls_.back()), input, signature,
                                 auth_token, verification_token, into(slot));
        },
        [&](const Answer& a) { cb(a.error, a.params, a.output); });
}

Return<ErrorCode> FaultKeymaster::abort(uint64_t handle) {
    return answerCode(operationRecord(Call::kAbort, handle, {}, {}), [&] {
        deviator_->aborted(handle);
        return inner_.abort(handle);
    });
}

}  // namespace soft_keymaster
