// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "caller.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace keymaster_check {
namespace {

constexpr std::chrono::seconds kSlow(1);
constexpr size_t kShownCalls = 6;  // so many calls of one case are shown

constexpr size_t kShownBytes = 16;

std::string describeValue(const KeyParameter& param) {
    if (hasBytes(param.tag)) {
        return describe(param.blob.data(), param.blob.size());
    }
    return typeOf(param.tag) == TagType::BOOL ? (param.f.boolValue ? "true" : "false")
                                              : std::to_string(numberOf(param));
}

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
    for (const hidl_vec<uint8_t>& element : answer.chain) {
        text += ", a blob of " + std::to_string(element.size()) + " bytes";
    }
    return text;
}

// E.g. "begin(ENCRYPT, blob of 200 bytes, [BLOCK_MODE 32])".
std::string describeCall(const CallRecord& call) {
    const std::string purpose = call.purpose == KeyPurpose::ENCRYPT ? "ENCRYPT"
                                : call.purpose == KeyPurpose::DECRYPT
                                    ? "DECRYPT"
                                    : std::to_string(uint32_t(call.purpose));
    const std::string blob = "blob of " + std::to_string(call.key_blob.size()) + " bytes";
    const std::string params = describe(call.params);
    const std::string input = describe(call.input.data(), call.input.size());
    const auto withArguments = [&call](const std::string& arguments) {
        return callName(call.call) + ("(" + arguments + ")");
    };
    switch (call.call) {
        case Call::kGenerateKey:
            return withArguments(params);
        case Call::kImportKey:
            return withArguments(params + ", RAW, " + input);
        case Call::kExportKey:
            return withArguments("X509, " + blob);
        case Call::kAttestKey:
        case Call::kUpgradeKey:
            return withArguments(blob + ", " + params);
        case Call::kBegin:
            return withArguments(purpose + ", " + blob + ", " + params);
        case Call::kUpdate:
            return withArguments(params + ", " + input);
        case Call::kFinish:
            return withArguments("");
        default:
            return withArguments(blob);
    }
}

// The first and the last of many.
std::string joined(const std::vector<std::string>& texts) {
    std::string result;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (i < kShownCalls / 2 || i + kShownCalls / 2 >= texts.size()) {
            result += (result.empty() ? "" : "; ") + texts[i];
        } else if (i == kShownCalls / 2) {
            result += "; " + std::to_string(texts.size() - kShownCalls) + " more calls";
        }
    }
    return result;
}

}  // namespace

std::string hex(const uint8_t* data, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", data[i]);
        text += digits;
    }
    return text;
}

std::string describe(const uint8_t* data, size_t size) {
    return std::to_string(size) + (size == 1 ? " byte" : " bytes") + (size == 0 ? "" : " ") +
           hex(data, std::min(size, kShownBytes)) + (size > kShownBytes ? "..." : "");
}

std::string describe(const Params& params) {
    std::string text;
    for (size_t i = 0; i < params.size(); ++i) {
        text += (i == 0 ? "" : ", ") + describeTag(params[i].tag) + " " + describeValue(params[i]);
    }
    return "[" + text + "]";
}

Caller::Caller(Keymaster& its_keymaster, const Options& its_options)
    : keymaster(its_keymaster), options(its_options), watch_(std::make_shared<CallbackWatch>()) {
    startRequirement();
}

Caller::~Caller() {
    for (const uint64_t handle : open_) {
        static_cast<void>(keymaster.abort(handle).isOk());
    }
    for (const Bytes& key : keys_) {
        if (!key.empty()) {
            static_cast<void>(keymaster.deleteKey(key).isOk());
        }
    }
}

Answer Caller::makeAnyway(const CallRecord& call) {
    const auto pending = std::make_shared<Pending>();
    pending->name = callName(call.call);
    pending->watch = watch_;
    const auto started = options.clock();
    const Return<void> status =
        keymaster_check::send(keymaster, call, [pending](const auto&... values) {
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
    const auto took = options.clock() - started;
    if (took > kSlow) {
        auto& [longest, times] = slow_calls_[pending->name];
        longest = std::max(longest, std::chrono::duration<double>(took).count());
        ++times;
    }
    ++calls_;
    const std::lock_guard<std::mutex> lock(watch_->mutex);
    pending->returned = true;
    Answer answer = std::move(pending->answer);
    answer.close(status);
    if (answer.transport && !answer.arrived) {
        pending->fault("not at all before the call returned");
    }
    found_no_room_ = found_no_room_ || answer.error == ErrorCode::TOO_MANY_OPERATIONS;
    if (call.call != Call::kAbort) {  // which only cleans up
        sent_.push_back(describeCall(call));
        answered_.push_back(pending->name + (": " + describeAnswer(answer)));
    }
    return answer;
}

Answer Caller::make(const CallRecord& call) {
    if (!hasTime()) {
        Answer none;
        none.failure = "not sent";
        return none;
    }
    const Answer answer = makeAnyway(call);
    const bool makes_key = call.call == Call::kGenerateKey || call.call == Call::kImportKey ||
                           call.call == Call::kUpgradeKey;
    if (makes_key && answer.ok()) {
        own(answer.output);
    } else if (call.call == Call::kBegin && answer.ok()) {
        open_.insert(answer.handle);
    } else if (call.call == Call::kFinish && answer.ok()) {
        open_.erase(call.handle);
    } else if (call.call == Call::kBegin && answer.arrived &&
               answer.error != ErrorCode::TOO_MANY_OPERATIONS) {
        ++refused_begins_;
    }
    return answer;
}

void Caller::abort(uint64_t handle) {
    const ErrorCode error = makeAnyway({Call::kAbort, {}, {}, {}, handle}).error;
    if (error != ErrorCode::OK && error != ErrorCode::INVALID_OPERATION_HANDLE) {
        makeAnyway({Call::kFinish, {}, {}, {}, handle});  // this also ends the operation
    }
    open_.erase(handle);
}

void Caller::startRequirement() {
    started_ = options.clock();
    calls_ = 0;
    missed_.clear();
    verdict_known_ = found_no_room_ = false;
    startCase();
}

bool Caller::hasTime() {
    const auto spent = options.clock() - started_;
    const auto to_abort = spent / std::max(calls_, 1) * static_cast<int>(open_.size());
    const bool stopped = options.stopped && options.stopped();
    const bool has_time = !stopped && spent + to_abort <= options.time;
    if (!has_time && !verdict_known_ && missed_.empty()) {
        missed_ = stopped
                      ? "stopped"
                      : "no time left: " + std::to_string(calls_) + " calls took " +
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

std::string Caller::sent() const {
    return joined(sent_);
}

std::string Caller::answered() const {
    return joined(answered_);
}

}  // namespace keymaster_check
