// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "soft_keymaster/fault_keymaster.h"

#include <algorithm>
#include <iterator>
#include <thread>

#include "deviator.h"

namespace soft_keymaster {

using android::hardware::Status;
using android::hardware::Void;

namespace {

Status transportFailure() {
    return Status::fromStatusT(android::DEAD_OBJECT);
}

}  // namespace

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

template <typename Reply>
Return<void> FaultKeymaster::answer(const CallRecord& made, Reply reply) {
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
    } else if (const auto refusal = deviator_->refusal(made)) {
        answer.take(*refusal);
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

Return<ErrorCode> FaultKeymaster::answerCode(const CallRecord& made) {
    ErrorCode code = ErrorCode::UNKNOWN_ERROR;
    const Return<void> status = answer(made, [&](const Answer& a) { code = a.error; });
    return status.isOk() ? Return<ErrorCode>(code) : Return<ErrorCode>(transportFailure());
}

Return<void> FaultKeymaster::generateKey(const hidl_vec<KeyParameter>& key_params,
                                         generateKey_cb cb) {
    return answer({Call::kGenerateKey, {}, key_params},
                  [&](const Answer& a) { cb(a.error, a.output, a.characteristics); });
}

Return<void> FaultKeymaster::importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                                       const hidl_vec<uint8_t>& key_data, importKey_cb cb) {
    return answer({Call::kImportKey, {}, key_params, {}, 0, key_data, format},
                  [&](const Answer& a) { cb(a.error, a.output, a.characteristics); });
}

Return<void> FaultKeymaster::getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                                   const hidl_vec<uint8_t>& client_id,
                                                   const hidl_vec<uint8_t>& app_data,
                                                   getKeyCharacteristics_cb cb) {
    CallRecord call = {Call::kGetKeyCharacteristics, key_blob};
    call.client_id = client_id;
    call.client_data = app_data;
    return answer(call, [&](const Answer& a) { cb(a.error, a.characteristics); });
}

Return<void> FaultKeymaster::exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data, exportKey_cb cb) {
    CallRecord call = {Call::kExportKey, key_blob};
    call.format = format;
    call.client_id = client_id;
    call.client_data = app_data;
    return answer(call, [&](const Answer& a) { cb(a.error, a.output); });
}

Return<void> FaultKeymaster::attestKey(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<KeyParameter>& attest_params,
                                       attestKey_cb cb) {
    return answer({Call::kAttestKey, key_blob, attest_params}, [&](const Answer& a) {
        cb(a.error, std::vector<hidl_vec<uint8_t>>(a.chain.begin(), a.chain.end()));
    });
}

Return<void> FaultKeymaster::upgradeKey(const hidl_vec<uint8_t>& key_blob,
                                        const hidl_vec<KeyParameter>& upgrade_params,
                                        upgradeKey_cb cb) {
    return answer({Call::kUpgradeKey, key_blob, upgrade_params},
                  [&](const Answer& a) { cb(a.error, a.output); });
}

Return<ErrorCode> FaultKeymaster::deleteKey(const hidl_vec<uint8_t>& key_blob) {
    return answerCode({Call::kDeleteKey, key_blob});
}

Return<void> FaultKeymaster::begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                                   const hidl_vec<KeyParameter>& in_params,
                                   const HardwareAuthToken& auth_token, begin_cb cb) {
    CallRecord call = {Call::kBegin, key_blob, in_params, purpose};
    call.auth_token = auth_token;
    return answer(call, [&](const Answer& a) { cb(a.error, a.params, a.handle); });
}

Return<void> FaultKeymaster::update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, update_cb cb) {
    CallRecord call = {Call::kUpdate, {}, in_params, {}, handle, input};
    call.auth_token = auth_token;
    call.verification = verification_token;
    return answer(call, [&](const Answer& a) { cb(a.error, a.consumed, a.params, a.output); });
}

Return<void> FaultKeymaster::finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                                    const hidl_vec<uint8_t>& input,
                                    const hidl_vec<uint8_t>& signature,
                                    const HardwareAuthToken& auth_token,
                                    const VerificationToken& verification_token, finish_cb cb) {
    CallRecord call = {Call::kFinish, {}, in_params, {}, handle, input};
    call.signature = signature;
    call.auth_token = auth_token;
    call.verification = verification_token;
    return answer(call, [&](const Answer& a) { cb(a.error, a.params, a.output); });
}

Return<ErrorCode> FaultKeymaster::abort(uint64_t handle) {
    return answerCode({Call::kAbort, {}, {}, {}, handle});
}

}  // namespace soft_keymaster
