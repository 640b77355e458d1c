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

#include "keymaster_check/client.h"
#include "keymaster_check/keymaster_check.h"
#include "keymaster_check/names.h"

namespace keymaster_check {

// The faults of callbacks. The callbacks share this object, because they may come after their call.
struct CallbackWatch {
    std::mutex mutex;
    std::map<std::string, size_t> faults;  // e.g. "update: once more", and how often
    bool late = false;                     // some callback came after its call had returned
};

// Two digits for each byte.
std::string hex(const uint8_t* data, size_t size);
// The length and the first bytes, e.g. "100 bytes 00ff...".
std::string describe(const uint8_t* data, size_t size);
// E.g. "[BLOCK_MODE 32, NONCE 12 bytes 00ff...]".
std::string describe(const Params& params);

class Caller {
  public:
    // Borrows both for the object's lifetime.
    Caller(Keymaster& its_keymaster, const Options& its_options);
    // Deletes the keys that are left.
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    Keymaster& keymaster;
    const Options& options;

    // Makes the call, if there is time, and remembers what it opened or made.
    Answer make(const CallRecord& call);
    void abort(uint64_t handle);

    // A key that is to be deleted at the end, or is not.
    void own(const Bytes& blob) { keys_.insert(blob); }
    void disown(const Bytes& blob) { keys_.erase(blob); }

    // Aborts the operations that did not end well.
    void abortAll();
    // Starts a requirement with its time and its first case.
    void startRequirement();
    // Aborts what is open. Returns which calls were slow, e.g. "finish took
    // 1.2 s"; empty when none was.
    std::string endRequirement();

    // Whether there is time for one more call, and to abort what is open. Without time no call is
    // sent, and its answer is none. A requirement that lacked a call has no verdict, so it need not
    // tell such an answer from another.
    bool hasTime();
    // From here on the verdict of the requirement is known, and lacks nothing without time.
    void verdictIsKnown() { verdict_known_ = true; }
    // Why a call was not sent; empty when all were.
    const std::string& missed() const { return missed_; }
    // Whether a call found no room for its operation.
    bool foundNoRoom() const { return found_no_room_; }

    // Starts the next case: forgets the calls before it. Below are its calls and their answers.
    void startCase() {
        sent_.clear();
        answered_.clear();
    }
    std::string sent() const;
    std::string answered() const;

    // The begins of all requirements that were refused for another reason than lack of room.
    size_t refusedBegins() const { return refused_begins_; }
    CallbackWatch& callbacks() { return *watch_; }

  private:
    Answer makeAnyway(const CallRecord& call);

    const std::shared_ptr<CallbackWatch> watch_;
    std::vector<std::string> sent_, answered_;                     // in this case
    std::map<std::string, std::pair<double, size_t>> slow_calls_;  // the longest time, how often
    std::set<Bytes> keys_;
    std::set<uint64_t> open_;
    size_t refused_begins_ = 0;

    // Of this requirement:
    std::chrono::steady_clock::time_point started_;
    int calls_ = 0;
    std::string missed_;
    bool verdict_known_ = false;
    bool found_no_room_ = false;
};

}  // namespace keymaster_check
