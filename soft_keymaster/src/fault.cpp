// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The faults of a FaultKeymaster, and those that have names.

#include <memory>
#include <set>
#include <type_traits>

#include "soft_keymaster/fault_keymaster.h"

namespace soft_keymaster {

namespace {

using keymaster_check::Bytes;

// 1 MiB less two pages: what the calls of a process share on a device.
constexpr size_t kTransportLimit = (1 << 20) - 2 * 4096;

template <typename Value>
using Member = Value Deviation::*;

template <typename Value>
NamedFault deviation(const char* name, const char* what, Member<Value> member,
                     std::common_type_t<Value> value) {
    Deviation deviation;
    deviation.*member = value;
    return {name, what, [deviation](FaultKeymaster& km) { km.deviate(deviation); }};
}

// Has upgradeKey return another blob when it upgrades a key.
NamedFault upgrade(const char* name, const char* what,
                   Bytes (*blob)(FaultKeymaster& km, const CallRecord& call)) {
    return {name, what, [blob](FaultKeymaster& km) {
                km.planEach(Call::kUpgradeKey,
                            Fault::alter([&km, blob](Answer& answer, const CallRecord& call) {
                                if (!answer.output.empty()) {
                                    answer.output = blob(km, call);
                                }
                            }));
            }};
}

// Refuses keys that this object has not made, in all calls that take a key.
void keepKeysInMemory(FaultKeymaster& km) {
    const auto made = std::make_shared<std::set<Bytes>>();
    km.planEach(Call::kGenerateKey,
                Fault::alter([made](Answer& answer) { made->insert(answer.output); }));
    for (const Call call : {Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpgradeKey}) {
        km.planEach(call, Fault::alter([made](Answer& answer, const CallRecord& sent) {
                        const hidl_vec<uint8_t>& blob = sent.key_blob;
                        if (blob.size() != 0 && made->count(blob) == 0) {
                            answer = Answer();
                            answer.error = ErrorCode::INVALID_KEY_BLOB;
                        }
                    }));
    }
}

}  // namespace

Fault Fault::nonceSize(size_t size) {
    return alter([size](Answer& answer) {
        KeyParameter* const nonce = keymaster_check::findParam(answer.params, Tag::NONCE);
        if (nonce != nullptr && size == 0) {
            answer.params.erase(answer.params.begin() + (nonce - answer.params.data()));
        } else if (nonce != nullptr) {
            Bytes bytes = nonce->blob;
            bytes.resize(size);
            nonce->blob = bytes;
        }
    });
}

const std::vector<NamedFault>& namedFaults() {
    static const std::vector<NamedFault> faults = {
        deviation("output-in-finish", "finish returns everything, update nothing",
                  &Deviation::output, Deviation::Output::kInFinish),
        deviation("output-in-blocks", "update returns whole blocks, finish the rest",
                  &Deviation::output, Deviation::Output::kWholeBlocks),
        deviation("nonce-16", "nonces of 16 bytes", &Deviation::nonce_size, 16),
        deviation("tag-12", "tags of 12 bytes", &Deviation::tag_size, 12),
        deviation("fixed-nonce", "the same nonce for every encryption", &Deviation::fixed_nonce,
                  true),
        deviation("counted-nonce", "nonces are a counter that each start resets",
                  &Deviation::counted_nonces, true),
        deviation("unchecked-tag", "a decryption succeeds with any tag", &Deviation::unchecked_tag,
                  true),
        deviation("ignored-aad", "associated data is ignored", &Deviation::ignored_associated_data,
                  true),
        deviation("small-transport", "calls of 1 MiB less 8 KiB or more fail",
                  &Deviation::transport_limit, kTransportLimit),
        deviation("open-after-errors", "an operation stays open after an error",
                  &Deviation::open_after_errors, true),
        deviation("open-after-refusals", "a begin that is refused leaves an operation open",
                  &Deviation::open_after_refusals, true),
        deviation("ignored-csr-tag", "a signing request gets a chain", &Deviation::ignored_csr_tag,
                  true),
        upgrade("upgrade-other-key", "an upgrade returns another key",
                [](FaultKeymaster& km, const CallRecord&) {
                    return keymaster_check::call(
                               km, {Call::kGenerateKey, {}, keymaster_check::databaseKeyParams()})
                        .output;
                }),
        upgrade("upgrade-garbage", "an upgrade returns garbage",
                [](FaultKeymaster&, const CallRecord&) { return Bytes(3, 1); }),
        upgrade("upgrade-same", "an upgrade changes nothing",
                [](FaultKeymaster&, const CallRecord& call) { return Bytes(call.key_blob); }),
        upgrade("upgrade-empty", "an upgrade returns no key",
                [](FaultKeymaster&, const CallRecord&) { return Bytes(); }),
        {"upgrade-missing", "upgradeKey is not implemented",
         [](FaultKeymaster& km) {
             km.planEach(Call::kUpgradeKey, Fault::error(ErrorCode::UNIMPLEMENTED));
         }},
        {"upgrade-not-asked", "a key that needs an upgrade is refused with -33",
         [](FaultKeymaster& km) {
             km.planEachCall(Fault::alter([](Answer& answer) {
                 if (answer.error == ErrorCode::KEY_REQUIRES_UPGRADE) {
                     answer.error = ErrorCode::INVALID_KEY_BLOB;
                 }
             }));
         }},
        {"keys-in-memory", "a restart of the keymaster loses its keys", keepKeysInMemory},
        {"callback-twice", "every callback runs twice",
         [](FaultKeymaster& km) { km.planEachCall(Fault::callbackTwice()); }},
        {"callback-on-thread", "callbacks run on another thread",
         [](FaultKeymaster& km) { km.planEachCall(Fault::callbackOnThread()); }},
        {"slow-call", "the first generateKey takes 1.2 s",
         [](FaultKeymaster& km) {
             km.plan(Call::kGenerateKey, 1, Fault::slow(std::chrono::milliseconds(1200)));
         }},
    };
    return faults;
}

}  // namespace soft_keymaster
