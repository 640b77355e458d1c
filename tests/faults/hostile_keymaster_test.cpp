// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Each keymaster call of each service meets every error code, lost transports, missing callbacks,
// empty and oversized answers. What comes of each is in tests/data/hostile_keymaster.txt (see
// kept_reports.h). No line of the log is malformed. Once the keymaster is well again, the store is,
// too.

#include <soft_keymaster/fault_keymaster.h>

#include <cstdio>
#include <functional>

#include "fault_loop.h"
#include "kept_reports.h"
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
    int error = 0;  // the error code that is returned; 0 for the other kinds
};

std::vector<NamedFault> allFaults() {
    std::vector<NamedFault> faults;
    for (int code = int(ErrorCode::DEVICE_LOCKED); code < 0; ++code) {
        faults.push_back({test::named(code), Fault::error(ErrorCode(code)), code});
    }
    for (const ErrorCode code :
         {ErrorCode::UNIMPLEMENTED, ErrorCode::VERSION_MISMATCH, ErrorCode::UNKNOWN_ERROR}) {
        faults.push_back({test::named(int(code)), Fault::error(code), int(code)});
    }
    faults.push_back({"lost before the callback", Fault::transportBeforeCallback()});
    faults.push_back({"lost after the callback", Fault::transportAfterCallback()});
    faults.push_back({"no callback", Fault::noCallback()});
    for (const size_t size : {0u, 1u, 15u, 16u, 17u, 100000u}) {
        faults.push_back({"output of " + std::to_string(size), Fault::outputSize(size)});
        faults.push_back({"nonce of " + std::to_string(size), Fault::nonceSize(size)});
    }
    faults.push_back({"empty answer", Fault::alter([](soft_keymaster::Answer& answer) {
                          answer = soft_keymaster::Answer();
                          answer.error = ErrorCode::OK;
                      })});
    faults.push_back({"all consumed twice",
                      Fault::alter([](soft_keymaster::Answer& answer) { answer.consumed *= 2; })});
    return faults;
}

struct Service {
    std::string name;
    std::vector<Call> calls;
    std::function<int()> run;
    int healthy = 0;  // its result when nothing is wrong with the answers
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
    const test::KeptReports kept(ZELKM_TEST_DATA_DIR "/hostile_keymaster.txt");
    int states = 0;
    for (const Service& service : services) {
        for (const Call call : service.calls) {
            const std::string name = service.name + ", " + soft_keymaster::callName(call);
            // What the service returns when the first such call meets the fault, the second and so
            // on. A fault that is left out is a code, and the service returns that each time. An
            // insert decrypts the store with the first operation, and refuses it when the output is
            // missing. Nobody looks at what the second operation encrypts.
            std::string report;
            for (const NamedFault& fault : allFaults()) {
                // A keymaster that hands out a wrong key blob has lost the key, and nobody can
                // tell.
                if (fault.name.find("output of ") == 0 && fault.name != "output of 0" &&
                    (call == Call::kUpgradeKey || call == Call::kGenerateKey)) {
                    continue;
                }
                std::string results;
                bool only_its_code = true;
                const auto attempt = [&](long nth) {
                    startFaulty();
                    faulty_.plan(call, size_t(nth), fault.fault);
                    const int status = service.run();
                    const bool hit = faulty_.calls(call).size() >= size_t(nth);
                    if (hit) {
                        results += ", " + test::named(status);
                        only_its_code &= status == fault.error && status != 0;
                    } else {
                        EXPECT_EQ(test::named(service.healthy), test::named(status));
                    }
                    for (const std::string& line : test::log()) {
                        EXPECT_EQ(std::string::npos, line.find("malformed")) << line;
                    }
                    faulty_.reset();
                    expectStoreIsWell(service.name == "insert after an upgrade");
                    return hit;
                };
                states += test::untilNothingFails(name + ": " + fault.name + " at call", attempt);
                report += only_its_code ? "" : fault.name + results + "\n";
            }
            kept.expect(name, report);
        }
    }
    std::printf("states after a faulty keymaster call: %d\n", states);
}

}  // namespace
