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
using android::hardware::keymaster::V4_0::VerificationToken;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kTimeOfRequirement(30);
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

void put(Answer& answer, ErrorCode value) {
    answer.error = static_cast<int>(value);
}
void put(Answer& answer, uint64_t value) {
    answer.handle = value;
}
void put(Answer& answer, uint32_t value) {
    answer.consumed = value;
}
void put(Answer& answer, const hidl_vec<uint8_t>& value) {
    answer.bytes = value;
}
void put(Answer& answer, const Params& value) {
    answer.params = value;
}
void put(Answer& answer, const KeyCharacteristics& value) {
    answer.characteristics = value;
}
void put(Answer& answer, const hidl_vec<hidl_vec<uint8_t>>& value) {
    answer.chain.assign(value.begin(), value.end());
}

std::string answerInWords(const Answer& answer) {
    if (!answer.arrived) {
        return answer.failure;
    }
    std::string text = codeInWords(answer.error);
    if (answer.params.size() != 0) {
        text += ", " + inWords(answer.params);
    }
    if (answer.consumed != 0) {
        text += ", consumed " + std::to_string(answer.consumed);
    }
    if (!answer.bytes.empty()) {
        text += ", " + inWords(answer.bytes.data(), answer.bytes.size());
    }
    for (const Bytes& element : answer.chain) {
        text += ", a blob of " + std::to_string(element.size()) + " bytes";
    }
    return text;
}

std::string purposeInWords(KeyPurpose purpose) {
    return purpose == KeyPurpose::ENCRYPT   ? "ENCRYPT"
           : purpose == KeyPurpose::DECRYPT ? "DECRYPT"
                                            : std::to_string(static_cast<uint32_t>(purpose));
}

std::string blobInWords(const Bytes& blob) {
    return "blob of " + std::to_string(blob.size()) + " bytes";
}

}  // namespace

Caller::Caller(Keymaster& keymaster)
    : keymaster_(keymaster), watch_(std::make_shared<CallbackWatch>()) {
    startRequirement();
}

Caller::~Caller() {
    endRequirement();
    for (const Bytes& key : keys_) {
        deleteKey(key);
    }
}

template <typename Make>
Answer Caller::make(const char* name, const std::string& arguments, Make make_call) {
    const auto pending = std::make_shared<Pending>();
    pending->name = name;
    pending->watch = watch_;
    const auto started = steady_clock::now();
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
        pending->answer.arrived = true;
        (put(pending->answer, values), ...);
    });
    timed(name, started);
    const std::lock_guard<std::mutex> lock(watch_->mutex);
    pending->returned = true;
    Answer answer = std::move(pending->answer);
    if (!status.isOk()) {
        answer = Answer();
        answer.failure = "the transport failed: " + status.description();
    } else if (!answer.arrived) {
        pending->fault("not at all before the call returned");
        answer.failure = "no answer";
    }
    calls_.push_back({name + ("(" + arguments + ")"), name + (": " + answerInWords(answer))});
    return answer;
}

void Caller::timed(const char* name, steady_clock::time_point started) {
    const auto took = steady_clock::now() - started;
    if (took > kSlow) {
        char text[64];
        std::snprintf(text, sizeof(text), "%s took %.1f s", name,
                      std::chrono::duration<double>(took).count());
        slow_calls_.push_back(text);
    }
}

Answer Caller::generateKey(const Params& params) {
    const Answer answer = make("generateKey", inWords(params), [&](const auto& callback) {
        return keymaster_.generateKey(params, callback);
    });
    if (answer.ok() && !answer.bytes.empty()) {
        keys_.push_back(answer.bytes);
    }
    return answer;
}

Answer Caller::importKey(const Params& params, const Bytes& key) {
    const Answer answer =
        make("importKey", inWords(params) + ", RAW, " + inWords(key.data(), key.size()),
             [&](const auto& callback) {
                 return keymaster_.importKey(params, KeyFormat::RAW, key, callback);
             });
    if (answer.ok() && !answer.bytes.empty()) {
        keys_.push_back(answer.bytes);
    }
    return answer;
}

Answer Caller::exportKey(const Bytes& blob) {
    return make("exportKey", "X509, " + blobInWords(blob), [&](const auto& callback) {
        return keymaster_.exportKey(KeyFormat::X509, blob, {}, {}, callback);
    });
}

Answer Caller::getKeyCharacteristics(const Bytes& blob) {
    return make("getKeyCharacteristics", blobInWords(blob), [&](const auto& callback) {
        return keymaster_.getKeyCharacteristics(blob, {}, {}, callback);
    });
}

Answer Caller::attestKey(const Bytes& blob, const Params& params) {
    return make("attestKey", blobInWords(blob) + ", " + inWords(params),
                [&](const auto& callback) { return keymaster_.attestKey(blob, params, callback); });
}

Answer Caller::begin(KeyPurpose purpose, const Bytes& blob, const Params& params) {
    const Answer answer =
        make("begin", purposeInWords(purpose) + ", " + blobInWords(blob) + ", " + inWords(params),
             [&](const auto& callback) {
                 return keymaster_.begin(purpose, blob, params, HardwareAuthToken(), callback);
             });
    if (answer.ok()) {
        open_.insert(answer.handle);
    }
    return answer;
}

Answer Caller::update(uint64_t handle, const Params& params, const uint8_t* input, size_t size) {
    hidl_vec<uint8_t> view;
    view.setToExternal(const_cast<uint8_t*>(input), size);  // the keymaster only reads it
    return make("update", inWords(params) + ", " + inWords(input, size), [&](const auto& callback) {
        return keymaster_.update(handle, params, view, HardwareAuthToken(), VerificationToken(),
                                 callback);
    });
}

Answer Caller::finish(uint64_t handle) {
    const Answer answer = make("finish", "", [&](const auto& callback) {
        return keymaster_.finish(handle, {}, {}, {}, HardwareAuthToken(), VerificationToken(),
                                 callback);
    });
    if (answer.ok()) {
        open_.erase(handle);
    }
    return answer;
}

void Caller::abort(uint64_t handle) {
    const auto started = steady_clock::now();
    const Return<ErrorCode> status = keymaster_.abort(handle);
    timed("abort", started);
    const ErrorCode error = status.isOk() ? ErrorCode(status) : ErrorCode::UNKNOWN_ERROR;
    if (error != ErrorCode::OK && error != ErrorCode::INVALID_OPERATION_HANDLE) {
        static_cast<void>(finish(handle));  // this also ends the operation
    }
    open_.erase(handle);
}

void Caller::deleteKey(const Bytes& blob) {
    const auto started = steady_clock::now();
    static_cast<void>(keymaster_.deleteKey(blob).isOk());
    timed("deleteKey", started);
}

void Caller::startRequirement() {
    deadline_ = steady_clock::now() + kTimeOfRequirement;
    startCase();
}

bool Caller::outOfTime() const {
    return steady_clock::now() > deadline_;
}

std::string Caller::endRequirement() {
    while (!open_.empty()) {
        abort(*open_.begin());
    }
    std::string text;
    for (const std::string& slow : slow_calls_) {
        text += (text.empty() ? "" : ", ") + slow;
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
