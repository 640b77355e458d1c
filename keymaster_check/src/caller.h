// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes the check's calls to the keymaster. Each call is timed and recorded in words, and its
// callback is watched. Keys and operations are remembered until they are removed.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "keymaster_check/keymaster_check.h"
#include "words.h"

namespace keymaster_check {

using android::hardware::hidl_vec;
using android::hardware::keymaster::V4_0::ErrorCode;
using android::hardware::keymaster::V4_0::KeyCharacteristics;
using android::hardware::keymaster::V4_0::KeyFormat;
using android::hardware::keymaster::V4_0::KeyParameter;
using android::hardware::keymaster::V4_0::KeyPurpose;
using android::hardware::keymaster::V4_0::Tag;
using android::hardware::keymaster::V4_0::support::Keymaster;

// The answer of one call. Members that the call does not have are empty.
struct Answer {
    bool arrived = false;  // the call succeeded, and its callback ran before it returned
    int error = -1000;     // -1000 also when nothing arrived
    std::string failure;   // why nothing arrived
    Bytes bytes;           // a key blob, or output
    Params params;
    uint64_t handle = 0;
    uint32_t consumed = 0;
    std::vector<Bytes> chain;
    KeyCharacteristics characteristics;

    bool ok() const { return arrived && error == 0; }
};

// The faults of callbacks. The callbacks share this object, because they may come after their call.
struct CallbackWatch {
    std::mutex mutex;
    std::map<std::string, size_t> faults;  // e.g. "update: twice", and how often
    bool late = false;                     // some callback came after its call had returned
};

class Caller {
  public:
    // Borrows `keymaster` for the object's lifetime.
    explicit Caller(Keymaster& keymaster);
    // Deletes the keys that are left.
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    Answer generateKey(const Params& params);
    Answer importKey(const Params& params, const Bytes& key);
    Answer exportKey(const Bytes& blob);
    Answer getKeyCharacteristics(const Bytes& blob);
    Answer attestKey(const Bytes& blob, const Params& params);
    Answer begin(KeyPurpose purpose, const Bytes& blob, const Params& params);
    Answer update(uint64_t handle, const Params& params, const uint8_t* input, size_t size);
    Answer finish(uint64_t handle);
    void abort(uint64_t handle);
    void deleteKey(const Bytes& blob);

    // Starts a requirement with its time limit and its first case.
    void startRequirement();
    bool outOfTime() const;
    // Aborts the operations that did not end well. Answers which calls were slow, e.g. "finish took
    // 1.2 s"; empty when none was.
    std::string endRequirement();

    // Starts the next case: forgets the calls before it. Below are its calls and their answers.
    void startCase() { calls_.clear(); }
    std::string sent() const;
    std::string answered() const;

    CallbackWatch& callbacks() { return *watch_; }

  private:
    struct Call {
        std::string sent;
        std::string answered;
    };
    using Text = std::string Call::*;

    template <typename Make>
    Answer make(const char* name, const std::string& arguments, Make make_call);
    void timed(const char* name, std::chrono::steady_clock::time_point started);
    static std::string joined(const std::vector<Call>& calls, Text text);

    Keymaster& keymaster_;
    const std::shared_ptr<CallbackWatch> watch_;
    std::vector<Call> calls_;
    std::vector<std::string> slow_calls_;
    std::vector<Bytes> keys_;
    std::set<uint64_t> open_;
    std::chrono::steady_clock::time_point deadline_;
};

}  // namespace keymaster_check
