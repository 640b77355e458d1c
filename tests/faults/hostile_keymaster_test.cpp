// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each keymaster call of each service meets every error code, lost transports, missing callbacks,
// empty and oversized answers. Every fault has a result of its own. No line of the log is
// malformed. Once the keymaster is well again, the store is, too.

#include <soft_keymaster/fault_keymaster.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "fault_loop.h"
#include "store_fixture.h"

namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using soft_keymaster::Call;
using soft_keymaster::Fault;
using soft_keymaster::FaultKeymaster;
using soft_keymaster::SoftKeymaster;
using test::kStore;

struct NamedFault {
    std::string name;
    Fault fault;
    int error;  // the error code that is returned; 0 for the other kinds
};

constexpr char kLostBefore[] = "lost before the callback";
constexpr char kLostAfter[] = "lost after the callback";
constexpr char kSilent[] = "no callback";
constexpr char kEmpty[] = "empty answer";
constexpr char kTwice[] = "all consumed twice";

std::vector<NamedFault> allFaults() {
    std::vector<NamedFault> faults;
    for (int code = int(ErrorCode::DEVICE_LOCKED); code < 0; ++code) {
        faults.push_back({test::named(code), Fault::error(ErrorCode(code)), code});
    }
    for (const ErrorCode code :
         {ErrorCode::UNIMPLEMENTED, ErrorCode::VERSION_MISMATCH, ErrorCode::UNKNOWN_ERROR}) {
        faults.push_back({test::named(int(code)), Fault::error(code), int(code)});
    }
    faults.push_back({kLostBefore, Fault::transportBeforeCallback(), 0});
    faults.push_back({kLostAfter, Fault::transportAfterCallback(), 0});
    faults.push_back({kSilent, Fault::noCallback(), 0});
    for (const size_t size : {0u, 1u, 15u, 16u, 17u, 100000u}) {
        faults.push_back({"output of " + std::to_string(size), Fault::outputSize(size), 0});
        faults.push_back({"nonce of " + std::to_string(size), Fault::nonceSize(size), 0});
    }
    faults.push_back({kEmpty, Fault::alter([](soft_keymaster::Answer& answer) {
                          answer = soft_keymaster::Answer();
                          answer.error = ErrorCode::OK;
                      }),
                      0});
    faults.push_back(
        {kTwice, Fault::alter([](soft_keymaster::Answer& answer) { answer.consumed *= 2; }), 0});
    return faults;
}

struct Service {
    std::string name;
    std::vector<Call> calls;
    std::function<int()> run;
    int healthy = 0;  // its result when nothing is wrong with the answers
};

// What some faults of a service's call make of the service, when they hit the first such call and
// the second. Elsewhere the keymaster's error code is the result, and any other fault leaves the
// result of a healthy keymaster. An insert decrypts the store with the first operation, and refuses
// the store when the output is missing. Nobody looks at what the second one encrypts.
struct Outcome {
    std::string call;
    std::vector<std::string> faults;
    std::vector<int> of;
};

const std::string kUpgradeAsked = test::named(ZELKM_KEY_REQUIRES_UPGRADE);
const std::vector<std::string> kNoAnswer = {kLostBefore, kLostAfter, kSilent};
const std::vector<Outcome> kOutcomes = {
    {"insert, getKeyCharacteristics", kNoAnswer, {ZELKM_UNKNOWN_ERROR}},
    // There is nothing to upgrade.
    {"insert, getKeyCharacteristics", {kUpgradeAsked}, {ZELKM_UNKNOWN_ERROR}},
    {"insert, begin", {kLostBefore, kSilent}, {ZELKM_UNKNOWN_ERROR, ZELKM_UNKNOWN_ERROR}},
    {"insert, begin", {kLostAfter}, {ZELKM_MALFORMED_STORE, ZELKM_OK}},
    {"insert, begin", {"nonce of 0"}, {ZELKM_OK, ZELKM_MISSING_NONCE}},
    {"insert, begin", {kEmpty}, {KM_ERROR_INVALID_OPERATION_HANDLE, ZELKM_MISSING_NONCE}},
    {"insert, update",
     {kLostBefore, kLostAfter, "output of 0", "output of 1", "output of 15", "output of 16",
      "output of 17"},
     {ZELKM_MALFORMED_STORE, ZELKM_OK}},
    {"insert, update", {kSilent, kEmpty, kTwice}, {ZELKM_UNKNOWN_ERROR, ZELKM_UNKNOWN_ERROR}},
    {"insert, finish", {kLostBefore, kSilent}, {ZELKM_MALFORMED_STORE, ZELKM_OK}},
    // 16 bytes are taken for a tag.
    {"insert, finish", {"output of 16"}, {ZELKM_MALFORMED_STORE, ZELKM_OK}},
    {"insert after an upgrade, upgradeKey", {kUpgradeAsked}, {ZELKM_INVALID_KEY_BLOB}},
    {"insert after an upgrade, upgradeKey", kNoAnswer, {ZELKM_UNKNOWN_ERROR}},
    {"insert after an upgrade, upgradeKey", {"output of 0", kEmpty}, {ZELKM_UNKNOWN_ERROR}},
    {"new key, generateKey", kNoAnswer, {ZELKM_UNKNOWN_ERROR}},
    {"password conversion, begin", kNoAnswer, {ZELKM_UNKNOWN_ERROR}},
    {"password conversion, begin", {kEmpty}, {ZELKM_INVALID_TAG}},
    {"signing request, attestKey", kNoAnswer, {ZELKM_UNKNOWN_ERROR}},
    {"signing request, attestKey", {kEmpty}, {ZELKM_OK}},
};

class HostileKeymaster : public test::StoreFixture<SoftKeymaster> {
  protected:
    HostileKeymaster() : faulty_(km_) {}

    // An object over the faulty keymaster, in the state of a new one.
    void startFaulty() {
        startAfresh();
        test::ObjectPeer peer(*faulty_object_);
        peer.setImage(*test::readFile(kStore));
        peer.setKeyBlob({});
        faulty_.reset();
    }

    // Expects that a new process reads rows that were there, and can go on. A key that was replaced
    // opens no store; a changed one that is `upgraded` does.
    void expectStoreIsWell(bool upgraded) {
        reopen();
        std::string found = test::readAliases(*object_);
        if (found == test::kNotVerified) {
            reopen();  // a refused image: a further process reads the backup
            found = test::readAliases(*object_);
        }
        if (*test::readFile("edbk") != files_["edbk"] && !upgraded) {
            EXPECT_EQ(0u, found.find("refused with")) << found;
            std::filesystem::remove(kStore);
            reopen();
            found = "";
        } else {
            EXPECT_TRUE(found == "a b c " || found == "a b " || found == "a ") << found;
        }
        EXPECT_EQ(0, test::insertAlias(*object_, "z"));
        reopen();
        EXPECT_EQ(found + "z ", test::readAliases(*object_));
    }

    FaultKeymaster faulty_;
    test::ObjectPtr faulty_object_ = test::makeObject(&faulty_, true);
};

TEST_F(HostileKeymaster, EveryCallFailsInEveryWay) {
    const hidl_vec<uint8_t> in = {1, 2, 3};
    hidl_vec<uint8_t> converted;
    hidl_vec<uint8_t> tag;
    hidl_vec<uint8_t> csr;
    const std::vector<Service> services = {
        {"insert",
         {Call::kGetKeyCharacteristics, Call::kBegin, Call::kUpdate, Call::kFinish},
         [this] { return test::insertAlias(*faulty_object_, "c"); }},
        {"insert after an upgrade",
         {Call::kUpgradeKey},
         [this] {
             km_.setPatchLevel(options().patch_level + 1);
             return test::insertAlias(*faulty_object_, "c");
         }},
        {"new key", {Call::kGenerateKey}, [this] { return faulty_object_->init_db_key(1); }},
        {"password conversion",
         {Call::kBegin},
         [&] {
             return faulty_object_->encryptWithPasswordHWKey(in, in, in, converted, in, in, tag,
                                                             PW_ENCRYPT_TYPE_TO_KEY);
         }},
        {"signing request",
         {Call::kAttestKey},
         [&] { return faulty_object_->generateCSR(in, {}, csr); },
         ZELKM_INVALID_KEY_BLOB},  // the key is none
    };
    int states = 0;
    for (const Service& service : services) {
        for (const Call call : service.calls) {
            for (const NamedFault& fault : allFaults()) {
                // A keymaster that hands out a wrong key blob has lost the key, and nobody can
                // tell.
                if (fault.name.find("output of ") == 0 && fault.name != "output of 0" &&
                    (call == Call::kUpgradeKey || call == Call::kGenerateKey)) {
                    continue;
                }
                // The first begin, update and finish decrypt the store, the second ones encrypt it.
                const std::string name = service.name + ", " + soft_keymaster::callName(call);
                states +=
                    test::untilNothingFails(name + ": " + fault.name + " at call", [&](long nth) {
                        startFaulty();
                        faulty_.plan(call, size_t(nth), fault.fault);
                        const int status = service.run();
                        const bool hit = faulty_.calls(call).size() >= size_t(nth);
                        const auto outcome =
                            std::find_if(kOutcomes.begin(), kOutcomes.end(), [&](const Outcome& o) {
                                return o.call == name &&
                                       std::count(o.faults.begin(), o.faults.end(), fault.name) !=
                                           0;
                            });
                        const int expected = !hit ? service.healthy
                                             : outcome != kOutcomes.end()
                                                 ? outcome->of.at(size_t(nth) - 1)
                                             : fault.error != 0 ? fault.error
                                                                : service.healthy;
                        EXPECT_EQ(test::named(expected), test::named(status));
                        for (const std::string& line : test::log()) {
                            EXPECT_EQ(std::string::npos, line.find("malformed")) << line;
                        }
                        faulty_.reset();
                        expectStoreIsWell(service.name == "insert after an upgrade");
                        return hit;
                    });
            }
        }
    }
    std::printf("states after a faulty keymaster call: %d\n", states);
}

}  // namespace
