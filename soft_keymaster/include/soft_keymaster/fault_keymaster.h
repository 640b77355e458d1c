// PROTECTS NOTHING: for development and tests only. Misbehaves on request.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A decorator around any keymaster, which records the calls made to it and injects faults by plan:
//
//     FaultKeymaster km(inner);
//     km.plan(Call::kUpdate, 2, Fault::transportAfterCallback());  // the second from now on
//     ...
//     EXPECT_EQ(km.calls(Call::kFinish).size(), 0u);
//
// A Fault hits a single call. A Deviation changes how the keymaster behaves in all calls. Calls
// that no store needs (see StoreKeymaster) are refused, and not recorded.
//
// Threads: one at a time.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <keymaster_check/names.h>

#include "store_keymaster.h"

namespace soft_keymaster {

using keymaster_check::callName;

// What happens to a call. Nothing by default.
struct Fault {
    enum class Callback { kOnce, kTwice, kOnThread, kNever };

    std::optional<ErrorCode> error_code = {};  // the answer; the inner keymaster is not called
    std::function<void(Answer&, const CallRecord&)> change = {};  // of the inner keymaster's answer
    Callback callback = Callback::kOnce;   // kNever: nor is the inner keymaster called
    bool call_fails = false;               // after the callback
    std::chrono::milliseconds delay = {};  // before the callback

    static Fault error(ErrorCode code) { return {code}; }
    // The call is as it was sent.
    static Fault alter(std::function<void(Answer&, const CallRecord&)> how) {
        return {{}, std::move(how)};
    }
    static Fault alter(const std::function<void(Answer&)>& how) {
        return alter([how](Answer& answer, const CallRecord&) { how(answer); });
    }
    static Fault callbackTwice() { return {{}, {}, Callback::kTwice}; }
    static Fault callbackOnThread() { return {{}, {}, Callback::kOnThread}; }
    static Fault noCallback() { return {{}, {}, Callback::kNever}; }
    static Fault transportBeforeCallback() { return {{}, {}, Callback::kNever, true}; }
    static Fault transportAfterCallback() { return {{}, {}, Callback::kOnce, true}; }
    static Fault slow(std::chrono::milliseconds time) {
        return {{}, {}, Callback::kOnce, false, time};
    }
    // Changes that tests often need. A size of 0 removes the NONCE entry, or leaves no output. A
    // larger size than before adds zeros.
    static Fault nonceSize(size_t size);
    static Fault outputSize(size_t size) {
        return alter([size](Answer& answer) { answer.output.resize(size); });
    }
};

// Properties in which a keymaster differs from others in every call. The keymaster stays
// consistent: it decrypts what it has encrypted.
struct Deviation {
    enum class Output {
        kInUpdate,
        kWholeBlocks,  // update returns whole blocks of 16 bytes, and finish the rest
        kInFinish,     // finish returns everything
    };

    Output output = Output::kInUpdate;
    size_t nonce_size = 12;                // bytes of an encryption's nonce
    bool fixed_nonce = false;              // the same for every encryption
    bool counted_nonces = false;           // from 0 on, for each object
    size_t tag_size = 16;                  // bytes, at least 12, whatever length is asked for
    bool unchecked_tag = false;            // a decryption succeeds with any tag
    bool ignored_associated_data = false;  // as if the call had no associated data
    size_t transport_limit = SIZE_MAX;     // bytes of a call's arguments; a larger call fails
    bool open_after_errors = false;        // an operation stays open after an error; 16 may be open
    bool open_after_refusals = false;      // a begin that is refused takes one of 16 places
    bool ignored_csr_tag = false;          // attests when a request is asked for
};

class FaultKeymaster : public StoreKeymaster {
  public:
    // Borrows `inner` for the object's lifetime.
    explicit FaultKeymaster(Keymaster& inner);
    ~FaultKeymaster() override;

    // Applies `fault` to the nth call of this kind from now on; 1 is the next one.
    void plan(Call call, size_t nth, Fault fault);
    // Applies `fault` to every call of this kind that has no fault of its own.
    void planEach(Call call, Fault fault);
    // Applies `fault` to every call that has no fault of its own.
    void planEachCall(const Fault& fault);
    // Replaces the deviation. Keys and operations made before may then stop working: make new ones.
    void deviate(const Deviation& deviation);
    // Has every call changed by `change` on its way to the inner keymaster. The records keep what
    // was sent.
    void alterCalls(std::function<void(CallRecord&)> change) { alter_ = std::move(change); }
    // Forgets all plans, the deviation and all records.
    void reset();

    // All calls in order, with those that a fault hit.
    const std::vector<CallRecord>& calls() const { return calls_; }
    std::vector<CallRecord> calls(Call call) const;

    const VersionResult& halVersion() const override { return inner_.halVersion(); }
    Return<void> getHardwareInfo(getHardwareInfo_cb cb) override {
        return inner_.getHardwareInfo(cb);
    }
    // Records the call, and makes it with the fault that is planned for it.
    Return<void> handle(const CallRecord& call, const Reply& reply) override;

  private:
    // The faults of one kind of call: some by number, and one for all the others.
    struct Plan {
        size_t count = 0;
        std::map<size_t, Fault> nth;
        Fault each;
    };

    Keymaster& inner_;
    std::map<Call, Plan> plans_;
    std::vector<CallRecord> calls_;
    std::function<void(CallRecord&)> alter_;
    class Deviator;
    std::unique_ptr<Deviator> deviator_;
};

// A fault to try a program with: its name, what the keymaster does then, and the function that
// makes it do so.
struct NamedFault {
    const char* name;
    const char* what;
    std::function<void(FaultKeymaster&)> apply;
};

const std::vector<NamedFault>& namedFaults();

}  // namespace soft_keymaster
