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

}  // namespace soft_keymaster
