// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each keymaster call of each service meets every error code, lost transports, missing callbacks,
// empty and oversized answers. Each has its own result, no line of the log is malformed, and once
// the keymaster is well again, so is the store.

#include <soft_keymaster/fault_keymaster.h>

#include <cstdio>
#include <functional>
#include <map>

#include "store_fixture.h"

namespace {

using android::hardware::hidl_vec;
using namespace android::hardware::keymaster::V4_0;
using soft_keymaster::Call;
using soft_keymaster::Fault;
using soft_keymaster::FaultKeymaster;
using soft_keymaster::SoftKeymaster;

struct NamedFault {
    std::string name;
    Fault fault;
    int error;  // the answered error code; 0 for the other kinds
};

std::vector<NamedFault> allFaults() {
    std::vector<NamedFault> faults;
    for (int code = -72; code < 0; ++code) {
        faults.push_back({std::to_string(code), Fault::error(ErrorCode(code)), code});
    }
    for (const int code : {-100, -101, -1000}) {
        faults.push_back({std::to_string(code), Fault::error(ErrorCode(code)), code});
    }
    faults.push_back({"lost before the callback", Fault::transportBeforeCallback(), 0});
    faults.push_back({"lost after the callback", Fault::transportAfterCallback(), 0});
    faults.push_back({"no callback", Fault::noCallback(), 0});
    for (const size_t size : {0u, 1u, 15u, 16u, 17u, 100000u}) {
        faults.push_back({"output of " + std::to_string(size), Fault::outputSize(size), 0});
        faults.push_back({"nonce of " + std::to_string(size), Fault::nonceSize(size), 0});
    }
    faults.push_back({"empty answer", Fault::alter([](soft_keymaster::Answer& answer) {
                          answer = soft_keymaster::Answer();
                      }),
                      0});
    faults.push_back({"all consumed twice",
                      Fault::alter([](soft_keymaster::Answer& answer) { answer.consumed *= 2; }),
                      0});
    return faults;
}

struct Service {
    std::string name;
    std::vector<Call> calls;
    std::function<int()> run;
    int healthy = 0;  // its result when nothing is wrong with the answers
};

// What a fault makes of the first such call, and of the second one, where that is another result
// than the answered error code or, for the other faults, that of a healthy keymaster. An insert
// decrypts the store first, and refuses what it then holds (-913) when the output is missing; what
// it encrypts afterwards is not looked at.
struct Outcome {
    int first;
    int second;
};
const std::map<std::string, Outcome> kOutcomes = {
    {"insert, getKeyCharacteristics: -62", {-1000, 0}},  // there is nothing to upgrade
    {"insert, getKeyCharacteristics: lost before the callback", {-1000, 0}},
    {"insert, getKeyCharacteristics: lost after the callback", {-1000, 0}},
    {"insert, getKeyCharacteristics: no callback", {-1000, 0}},
    {"insert, begin: lost before the callback", {-1000, -1000}},
    {"insert, begin: lost after the callback", {-913, 0}},
    {"insert, begin: no callback", {-1000, -1000}},
    {"insert, begin: nonce of 0", {0, -51}},
    {"insert, begin: empty answer", {-28, -51}},
    {"insert, update: lost before the callback", {-913, 0}},
    {"insert, update: lost after the callback", {-913, 0}},
    {"insert, update: no callback", {-1000, -1000}},
    {"insert, update: output of 0", {-913, 0}},
    {"insert, update: output of 1", {-913, 0}},
    {"insert, update: output of 15", {-913, 0}},
    {"insert, update: output of 16", {-913, 0}},
    {"insert, update: output of 17", {-913, 0}},
    {"insert, update: empty answer", {-1000, -1000}},
    {"insert, update: all consumed twice", {-1000, -1000}},
    {"insert, finish: lost before the callback", {-913, 0}},
    {"insert, finish: no callback", {-913, 0}},
    {"insert, finish: output of 16", {-913, 0}},  // taken for a tag
    {"insert after an upgrade, upgradeKey: -62", {-33, 0}},
    {"insert after an upgrade, upgradeKey: lost before the callback", {-1000, 0}},
    {"insert after an upgrade, upgradeKey: lost after the callback", {-1000, 0}},
    {"insert after an upgrade, upgradeKey: no callback", {-1000, 0}},
    {"insert after an upgrade, upgradeKey: output of 0", {-1000, 0}},
    {"insert after an upgrade, upgradeKey: empty answer", {-1000, 0}},
    {"new key, generateKey: lost before the callback", {-1000, 0}},
    {"new key, generateKey: lost after the callback", {-1000, 0}},
    {"new key, generateKey: no callback", {-1000, 0}},
    {"password conversion, begin: lost before the callback", {-1000, 0}},
    {"password conversion, begin: lost after the callback", {-1000, 0}},
    {"password conversion, begin: no callback", {-1000, 0}},
    {"password conversion, begin: empty answer", {-40, 0}},
    {"signing request, attestKey: lost before the callback", {-1000, -33}},
    {"signing request, attestKey: lost after the callback", {-1000, -33}},
    {"signing request, attestKey: no callback", {-1000, -33}},
    {"signing request, attestKey: empty answer", {0, -33}},
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
         -33},  // the key is none
    };
    int states = 0;
    for (const Service& service : services) {
        for (const Call call : service.calls) {
            for (const NamedFault& fault : allFaults()) {
                // Who hands out a key blob that is none has lost the key; nobody can tell.
                if (fault.name.find("output of ") == 0 && fault.name != "output of 0" &&
                    (call == Call::kUpgradeKey || call == Call::kGenerateKey)) {
                    continue;
                }
                // The first begin, update and finish decrypt the store, the second ones encrypt it.
                for (const size_t nth : {1u, 2u}) {
                    const std::string name =
                        service.name + ", " + soft_keymaster::callName(call) + ": " + fault.name;
                    SCOPED_TRACE(name + ", call " + std::to_string(nth));
                    startFaulty();
                    faulty_.plan(call, nth, fault.fault);
                    const int status = service.run();
                    ++states;
                    const bool hit = faulty_.calls(call).size() >= nth;
                    const auto outcome = kOutcomes.find(name);
                    if (outcome != kOutcomes.end()) {
                        EXPECT_EQ(nth == 1 ? outcome->second.first : outcome->second.second,
                                  status);
                    } else {
                        EXPECT_EQ(hit && fault.error != 0 ? fault.error : service.healthy, status);
                    }
                    for (const std::string& line : test::log()) {
                        EXPECT_EQ(std::string::npos, line.find("malformed")) << line;
                    }
                    faulty_.reset();

                    // A new process; after a refused image, a further one reads the backup.
                    reopen();
                    const bool key_changed = *test::readFile("edbk") != files_["edbk"] &&
                                             service.name != "insert after an upgrade";
                    std::string found = test::readAliases(*object_);
                    if (found == "status -30 ") {
                        reopen();
                        found = test::readAliases(*object_);
                    }
                    if (key_changed) {
                        EXPECT_EQ(0u, found.find("status -")) << found;
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
            }
        }
    }
    std::printf("states after a faulty keymaster call: %d\n", states);
}

}  // namespace
