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
// A Fault hits a single call. A Deviation changes how the keymaster behaves in all calls.
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
#include <vector>

#include "keymaster_types.h"

namespace soft_keymaster {

enum class Call {
    kGetHardwareInfo,
    kGetHmacSharingParameters,
    kComputeSharedHmac,
    kVerifyAuthorization,
    kAddRngEntropy,
    kGenerateKey,
    kImportKey,
    kImportWrappedKey,
    kGetKeyCharacteristics,
    kExportKey,
    kAttestKey,
    kUpgradeKey,
    kDeleteKey,
    kDeleteAllKeys,
    kDestroyAttestationIds,
    kBegin,
    kUpdate,
    kFinish,
    kAbort,
};

// The name of the member of IKeymasterDevice.
const char* callName(Call call);

// One recorded call; every vector is a copy of its own. Members that a call does not have are zero
// or empty.
struct CallRecord {
    Call call;
    KeyPurpose purpose;  // begin
    uint64_t handle;     // update, finish, abort
    hidl_vec<uint8_t> key_blob;
    hidl_vec<KeyParameter> params;
    hidl_vec<uint8_t> input;  // update, finish, addRngEntropy
};

// The answer that a call is about to give. Members that the call does not have are ignored.
struct Answer {
    ErrorCode error;
    uint64_t handle;           // begin
    uint32_t consumed;         // update
    hidl_vec<uint8_t> output;  // update, finish; a key blob; exported material
    hidl_vec<KeyParameter> params;
    hidl_vec<hidl_vec<uint8_t>> chain;  // attestKey
    KeyCharacteristics characteristics;
    HmacSharingParameters hmac_params;
    VerificationToken token;
};

struct Fault {
    enum class Kind {
        kAnswerError,              // the inner keymaster is not called; the answer is `code`
        kTransportBeforeCallback,  // the inner keymaster is not called; the call fails
        kNoCallback,               // neither it nor the callback is called; the call succeeds
        kTransportAfterCallback,   // the callback runs, and then the call fails
        kAlter,                    // the callback gets the answer changed by `change`
        kCallbackTwice,            // the callback runs two times
        kCallbackOnThread,         // the callback runs on another thread, before the call returns
        kSlow,                     // the answer comes after `delay`
    };

    static Fault error(ErrorCode code);
    static Fault transportBeforeCallback();
    static Fault transportAfterCallback();
    static Fault noCallback();
    static Fault alter(std::function<void(Answer&)> change);
    // The next two do nothing to a call that has no callback, and slow() only delays it.
    static Fault callbackTwice();
    static Fault callbackOnThread();
    static Fault slow(std::chrono::milliseconds delay);
    // Changes that tests often need. A size of 0 removes the NONCE entry, or leaves no output. A
    // larger size than before adds zeros.
    static Fault nonceSize(size_t size);
    static Fault outputSize(size_t size);

    Kind kind;
    ErrorCode code;
    std::function<void(Answer&)> change;
    std::chrono::milliseconds delay = {};
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

class FaultKeymaster : public Keymaster {
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
    // Forgets all plans, the deviation and all records.
    void reset();

    // All calls in order, with those that a fault hit.
    const std::vector<CallRecord>& calls() const { return calls_; }
    std::vector<CallRecord> calls(Call call) const;

    const VersionResult& halVersion() const override { return inner_.halVersion(); }
    Return<void> getHardwareInfo(getHardwareInfo_cb cb) override;
    Return<void> getHmacSharingParameters(getHmacSharingParameters_cb cb) override;
    Return<void> computeSharedHmac(const hidl_vec<HmacSharingParameters>& params,
                                   computeSharedHmac_cb cb) override;
    Return<void> verifyAuthorization(uint64_t handle, const hidl_vec<KeyParameter>& params,
                                     const HardwareAuthToken& auth_token,
                                     verifyAuthorization_cb cb) override;
    Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) override;
    Return<void> generateKey(const hidl_vec<KeyParameter>& key_params, generateKey_cb cb) override;
    Return<void> importKey(const hidl_vec<KeyParameter>& key_params, KeyFormat format,
                           const hidl_vec<uint8_t>& key_data, importKey_cb cb) override;
    Return<void> importWrappedKey(const hidl_vec<uint8_t>& wrapped_key_data,
                                  const hidl_vec<uint8_t>& wrapping_key_blob,
                                  const hidl_vec<uint8_t>& masking_key,
                                  const hidl_vec<KeyParameter>& unwrapping_params,
                                  uint64_t password_sid, uint64_t biometric_sid,
                                  importWrappedKey_cb cb) override;
    Return<void> getKeyCharacteristics(const hidl_vec<uint8_t>& key_blob,
                                       const hidl_vec<uint8_t>& client_id,
                                       const hidl_vec<uint8_t>& app_data,
                                       getKeyCharacteristics_cb cb) override;
    Return<void> exportKey(KeyFormat format, const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<uint8_t>& client_id, const hidl_vec<uint8_t>& app_data,
                           exportKey_cb cb) override;
    Return<void> attestKey(const hidl_vec<uint8_t>& key_blob,
                           const hidl_vec<KeyParameter>& attest_params, attestKey_cb cb) override;
    Return<void> upgradeKey(const hidl_vec<uint8_t>& key_blob,
                            const hidl_vec<KeyParameter>& upgrade_params,
                            upgradeKey_cb cb) override;
    Return<ErrorCode> deleteKey(const hidl_vec<uint8_t>& key_blob) override;
    Return<ErrorCode> deleteAllKeys() override;
    Return<ErrorCode> destroyAttestationIds() override;
    Return<void> begin(KeyPurpose purpose, const hidl_vec<uint8_t>& key_blob,
                       const hidl_vec<KeyParameter>& in_params, const HardwareAuthToken& auth_token,
                       begin_cb cb) override;
    Return<void> update(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, update_cb cb) override;
    Return<void> finish(uint64_t handle, const hidl_vec<KeyParameter>& in_params,
                        const hidl_vec<uint8_t>& input, const hidl_vec<uint8_t>& signature,
                        const HardwareAuthToken& auth_token,
                        const VerificationToken& verification_token, finish_cb cb) override;
    Return<ErrorCode> abort(uint64_t handle) override;

  private:
    // Records the call and picks its fault.
    std::optional<Fault> enter(CallRecord record);
    template <typename Forward, typename Reply>
    Return<void> answer(CallRecord record, Forward forward, Reply reply);
    template <typename Forward>
    Return<ErrorCode> answerCode(CallRecord record, Forward forward);

    // The faults of one kind of call: some by number, and one for all the others.
    struct Plan {
        size_t count = 0;
        std::map<size_t, Fault> nth;
        std::optional<Fault> each;
    };

    Keymaster& inner_;
    std::map<Call, Plan> plans_;
    std::vector<CallRecord> calls_;
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
