// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "caller.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace keymaster_check {
namespace {

using android::hardware::Return;
using android::hardware::keymaster::V4_0::HardwareAuthToken;
using android::hardware::keymaster::V4_0::KeyFormat;
using android::hardware::keymaster::V4_0::VerificationToken;

constexpr std::chrono::seconds kSlow(1);
constexpr size_t kShownCalls = 6;  // so many calls of one case are shown

// A call that is under way. Its callback shares it.
struct Pending {
    const char* name;
    std::shared_ptr<CallbackWatch> watch;  // its mutex guards what follows
    std::thread::id caller = std::this_thread::get_id();
    bool returned = false;
    int times = 0;
    Answer answer = {};

    void fault(const char* what) { ++watch->faults[std::string(name) + ": " + what]; }
};

std::string describeAnswer(const Answer& answer) {
    if (!answer.arrived) {
        return answer.failure;
    }
    std::string text = describeCode(answer.error);
    if (answer.params.size() != 0) {
        text += ", " + describe(answer.params);
    }
    if (answer.consumed != 0) {
        text += ", consumed " + std::to_string(answer.consumed);
    }
    if (!answer.output.empty()) {
        text += ", " + describe(answer.output.data(), answer.output.size());
    }
    for (const Bytes& element : answer.chain) {
        text += ", a blob of " + std::to_string(element.size()) + " bytes";
    }
    return text;
}

std::string describePurpose(KeyPurpose purpose) {
    return purpose == KeyPurpose::ENCRYPT   ? "ENCRYPT"
           : purpose == KeyPurpose::DECRYPT ? "DECRYPT"
                                            : std::to_string(static_cast<uint32_t>(purpose));
}

Answer notSent() {
    Answer none;
    none.failure = "not sent";
    return none;
}

std::string describeBlob(const Bytes& blob) {
    return "blob of " + std::to_string(blob.size()) + " bytes";
}

}  // namespace

Caller::Caller(Keymaster& keymaster, const Options& options)
    : keymaster_(keymaster), options_(options), watch_(std::make_shared<CallbackWatch>()) {
    startRequirement();
}

Caller::~Caller() {
    endRequirement();
    for (const Bytes& key : keys_) {
        const Time started = options_.clock();
        static_cast<void>(keymaster_.deleteKey(key).isOk());
        timed("deleteKey", started);
    }
}

void Caller::own(const Bytes& blob) {
    if (!blob.empty()) {
        keys_.insert(blob);
    }
}

template <typename Make>
Answer Caller::make(const char* name, const std::string& arguments, Make make_call) {
    return hasTime() ? send(name, arguments, make_call) : notSent();
}

template <typename Make>
Answer Caller::send(const char* name, const std::string& arguments, Make make_call) {
    const auto pending = std::make_shared<Pending>();
    pending->name = name;
    pending->watch = watch_;
    const Time started = options_.clock();
    const Return<void> status = make_call([pending](const auto&... values) {
        const std::lock_guard<std::mutex> lock(pending->watch->mutex);
        if (pending->returned) {
            pending->watch->late = true;
            pending->fault("after the call had returned");
            return;
        }
        if (std::this_thread::get_id() != pending->caller) {
            pending->fault("on another thread");
        }
        if (++pending->times > 1) {
            pending->fault("once more");
            return;
        }
        pending->answer.take(values...);
    });
    timed(name, started);
    ++sent_;
    const std::lock_guard<std::mutex> lock(watch_->mutex);
    pending->returned = true;
    Answer answer = std::move(pending->answer);
    answer.close(status);
    if (answer.transport && !answer.arrived) {
        pending->fault("not at all before the call returned");
    }
    found_no_room_ = found_no_room_ || answer.error == ErrorCode::TOO_MANY_OPERATIONS;
    calls_.push_back({name + ("(" + arguments + ")"), name + (": " + describeAnswer(answer))});
    return answer;
}

void Caller::timed(const char* name, Time started) {
    const auto took = options_.clock() - started;
    if (took > kSlow) {
        auto& [longest, times] = slow_calls_[name];
        longest = std::max(longest, std::chrono::duration<double>(took).count());
        ++times;
    }
}

Answer Caller::keyMade(const Answer& answer) {
    if (answer.ok()) {
        own(answer.output);
    }
    return answer;
}

Answer Caller::generateKey(const Params& params) {
    return keyMade(make("generateKey", describe(params), [&](const auto& callback) {
        return keymaster_.generateKey(params, callback);
    }));
}

Answer Caller::importKey(const Params& params, const Bytes& key) {
    return keyMade(make("importKey",
                        describe(params) + ", RAW, " + describe(key.data(), key.size()),
                        [&](const auto& callback) {
                            return keymaster_.importKey(params, KeyFormat::RAW, key, callback);
                        }));
}

Answer Caller::exportKey(const Bytes& blob) {
    return make("exportKey", "X509, " + describeBlob(blob), [&](const auto& callback) {
        return keymaster_.exportKey(KeyFormat::X509, blob, {}, {}, callback);
    });
}

Answer Caller::getKeyCharacteristics(const Bytes& blob) {
    return make("getKeyCharacteristics", describeBlob(blob), [&](const auto& callback) {
        return keymaster_.getKeyCharacteristics(blob, {}, {}, callback);
    });
}

Answer Caller::upgradeKey(const Bytes& blob) {
    return keyMade(make("upgradeKey", describeBlob(blob) + ", []", [&](const auto& callback) {
        return keymaster_.upgradeKey(blob, {}, callback);
    }));
}

Answer Caller::attestKey(const Bytes& blob, const Params& params) {
    return make("attestKey", describeBlob(blob) + ", " + describe(params),
                [&](const auto& callback) { return keymaster_.attestKey(blob, params, callback); });
}

Answer Caller::begin(KeyPurpose purpose, const Bytes& blob, const Params& params) {
    const Answer answer = make(
        "begin", describePurpose(purpose) + ", " + describeBlob(blob) + ", " + describe(params),
        [&](const auto& callback) {
            return keymaster_.begin(purpose, blob, params, HardwareAuthToken(), callback);
        });
    if (answer.ok()) {
        open_.insert(answer.handle);
    } else if (answer.arrived && answer.error != ErrorCode::TOO_MANY_OPERATIONS) {
        ++refused_begins_;
    }
    return answer;
}

Answer Caller::update(uint64_t handle, const Params& params, const uint8_t* input, size_t size) {
    hidl_vec<uint8_t> view;
    view.setToExternal(const_cast<uint8_t*>(input), size);  // the keymaster only reads it
    return make("update", describe(params) + ", " + describe(input, size),
                [&](const auto& callback) {
                    return keymaster_.update(handle, params, view, HardwareAuthToken(),
                                             VerificationToken(), callback);
                });
}

Answer Caller::sendFinish(uint64_t handle) {
    return send("finish", "", [&](const auto& callback) {
        return keymaster_.finish(handle, {}, {}, {}, HardwareAuthToken(), VerificationToken(),
                                 callback);
    });
}

Answer Caller::finish(uint64_t handle) {
    const Answer answer = hasTime() ? sendFinish(handle) : notSent();
    if (answer.ok()) {
        open_.erase(handle);
    }
    return answer;
}

void Caller::abort(uint64_t handle) {
    const Time started = options_.clock();
    const Return<ErrorCode> status = keymaster_.abort(handle);
    timed("abort", started);
    ++sent_;
    const ErrorCode error = status.isOk() ? ErrorCode(status) : ErrorCode::UNKNOWN_ERROR;
    if (error != ErrorCode::OK && error != ErrorCode::INVALID_OPERATION_HANDLE) {
        static_cast<void>(sendFinish(handle));  // this also ends the operation
    }
    open_.erase(handle);
}

void Caller::startRequirement() {
    started_ = options_.clock();
    sent_ = 0;
    missed_.clear();
    verdict_known_ = found_no_room_ = false;
    startCase();
}

bool Caller::hasTime() {
    const auto spent = options_.clock() - started_;
    const auto to_abort = spent / std::max(sent_, 1) * static_cast<int>(open_.size());
    const bool stopped = options_.stopped && options_.stopped();
    const bool has_time = !stopped && spent + to_abort <= options_.time;
    if (!has_time && !verdict_known_ && missed_.empty()) {
        missed_ = stopped
                      ? "stopped"
                      : "no time left: " + std::to_string(sent_) + " calls took " +
                            std::to_string(
                                std::chrono::duration_cast<std::chrono::seconds>(spent).count()) +
                            " s";
    }
    return has_time;
}

void Caller::abortAll() {
    while (!open_.empty()) {
        abort(*open_.begin());
    }
}

std::string Caller::endRequirement() {
    abortAll();
    std::string text;
    for (const auto& [name, slow] : slow_calls_) {
        const auto& [longest, times] = slow;
        char took[64];
        std::snprintf(took, sizeof(took),
                      times == 1 ? " took %.1f s" : " took up to %.1f s, %zu times", longest,
                      times);
        text += (text.empty() ? "" : ", ") + name + took;
    }
    slow_calls_.clear();
    return text;
}

std::string Caller::joined(const std::vector<Call>& calls, Text text) {
    std::string result;
    for (size_t i = 0; i < calls.size(); ++i) {
        const bool shown = calls.size() <= kShownCalls || i < kShownCalls / 2 ||
                           i + kShownCalls / 2 >= calls.size();
        if (shown) {
            result += (result.empty() ? "" : "; ") + calls[i].*text;
        } else if (i == kShownCalls / 2) {
            result += "; " + std::to_string(calls.size() - kShownCalls / 2 * 2) + " more calls";
        }
    }
    return result;
}

std::string Caller::sent() const {
    return joined(calls_, &Call::sent);
}

std::string Caller::answered() const {
    return joined(calls_, &Call::answered);
}

}  // namespace keymaster_check
