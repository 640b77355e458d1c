// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What an operation costs on a device: keymaster calls, bytes through the keymaster's transport,
// file calls, flushes, and bytes read and written. docs/device-costs.md must show these counts.

#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <functional>
#include <sstream>

#include "engine.h"
#include "file_faults.h"
#include "operation_peer.h"

namespace {

using namespace soft_keymaster;
using namespace test;

constexpr char kStore[] = "secure_objects.db";
constexpr double kTransports[] = {0.1, 1, 5};  // milliseconds a call

// An object that takes 60 bytes in the store.
SODOperationParam objectParam(size_t number) {
    std::string alias = "object-" + std::to_string(100000000 + number);
    std::string creator = "creator1";
    std::string admin = "1000,12345";
    std::string accessor = "[10000..10999]";
    std::string uid = "12345";
    SODOperationParam p;
    p.addAliasInWhere(alias).addCreatorToOutput().setAlias(alias).setCreator(creator);
    return p.setAdmin(admin).setAccessor(accessor).setCreatorUid(uid);
}

std::string rowText(size_t number) {
    SODOperationParam p = objectParam(number);
    std::string text;
    for (const std::string& value : p.getDataList()) {
        text += value.substr(1, value.size() - 2) + "^";
    }
    return text + "^\n";
}

// Counts one parameter as its tag, a value of eight bytes, and its blob.
size_t lengthOf(const hidl_vec<KeyParameter>& params) {
    size_t len = 0;
    for (const KeyParameter& param : params) {
        len += 12 + param.blob.size();
    }
    return len;
}

std::string joined(const std::vector<std::string>& calls) {
    std::string text;
    for (const std::string& call : calls) {
        text += (text.empty() ? "" : ", ") + call;
    }
    return text;
}

std::string reading(const std::string& file) {
    return "open " + file + ", lseek end, lseek set, read, close";
}

std::string replacing(const std::string& file) {
    return "open " + file + ".tmp, write, flush file, close, unlink " + file + ".bak, rename " +
           file + " " + file + ".bak, unlink " + file + ", rename " + file + ".tmp " + file +
           ", flush directory";
}

constexpr char kCipher[] = "begin, update, finish";

class DeviceCosts : public InTempDir {
  protected:
    SoftKeymaster::Options options() {
        SoftKeymaster::Options result;
        result.root_key_path = "root_key";
        return result;
    }

    void makeStore(size_t rows) {
        std::string payload;
        for (size_t i = 0; i < rows; ++i) {
            payload += rowText(i);
        }
        writeFile(kStore, bytes(store(static_cast<uint32_t>(rows), payload + "$")));
        stop();
        start();
        SODOperationParam extra = objectParam(rows);
        ASSERT_EQ(0, object_->SodInsert(extra));  // encrypts it
        ASSERT_EQ(0, object_->SodDelete(extra));
    }

    void stop() {
        object_.reset();
        forgetTable();
    }
    void start() { object_ = makeObject(&km_, true); }

    // Runs the operation, which must make exactly these calls, and adds its costs to both tables.
    void measure(const std::string& name, size_t rows, const std::string& keymaster_calls,
                 const std::string& file_calls, const std::function<void()>& operation) {
        km_.reset();
        size_t answered = 0;
        for (const Call call : {Call::kGenerateKey, Call::kGetKeyCharacteristics, Call::kUpgradeKey,
                                Call::kBegin, Call::kUpdate, Call::kFinish}) {
            km_.planEach(call, Fault::alter([&answered](Answer& answer) {
                             answered += answer.output.size() + lengthOf(answer.params) +
                                         lengthOf(answer.characteristics.softwareEnforced) +
                                         lengthOf(answer.characteristics.hardwareEnforced);
                         }));
        }
        const FileFaults files;
        operation();
        const std::vector<CallRecord> records = km_.calls();
        km_.reset();

        size_t sent = 0;
        std::vector<std::string> calls;
        for (const CallRecord& record : records) {
            sent += record.key_blob.size() + lengthOf(record.params) + record.input.size();
            calls.push_back(callName(record.call));
        }
        EXPECT_EQ(keymaster_calls, joined(calls)) << name;

        size_t flushes = 0;
        size_t read = 0;
        size_t written = 0;
        std::vector<std::string> trace;
        for (const std::string& call : files.trace()) {
            std::string word;
            size_t len = 0;
            if (std::istringstream(call) >> word >> len) {
                (word == "read" ? read : written) += len;
            }
            flushes += word == "flush";
            trace.push_back(word == "read" || word == "write" ? word : call);
        }
        EXPECT_EQ(file_calls, joined(trace)) << name;

        std::ostringstream counts;
        counts << "| " << name << " | " << rows;
        for (const size_t count :
             {calls.size(), sent, answered, trace.size() - flushes, flushes, read, written}) {
            counts << " | " << count;
        }
        expected_ << counts.str() << " |\n";
        times_[name] = calls.size();
    }

    SoftKeymaster soft_{options()};
    FaultKeymaster km_{soft_};
    ObjectPtr object_;
    std::ostringstream expected_;
    std::map<std::string, size_t> times_;
};

TEST_F(DeviceCosts, AreTheDocumentedOnes) {
    const std::string characteristics = "getKeyCharacteristics, ";
    const std::string opening = reading(kStore) + ", " + reading("edbk");
    SODOperationParam first = objectParam(0);
    measure("first insert in an empty directory", 0, std::string("generateKey, ") + kCipher,
            std::string("open ") + kStore + ", open edbk, " + replacing("edbk") + ", " +
                replacing("edbk_digest") + ", " + replacing(kStore),
            [&] {
                start();
                ASSERT_EQ(0, object_->SodInsert(first));
            });
    for (const size_t rows : {size_t{10}, size_t{100}, size_t{1000}}) {
        ASSERT_NO_FATAL_FAILURE(makeStore(rows));
        SODOperationParam find = objectParam(rows / 2);
        SODOperationParam extra = objectParam(rows);
        const auto select = [&] {
            std::vector<std::string> found;
            ASSERT_EQ(0, object_->SodSelect(find, found));
            ASSERT_EQ(2u, found.size());
        };
        const auto startAndSelect = [&] {
            start();
            select();
        };
        stop();
        measure("first query of a process", rows, characteristics + kCipher, opening,
                startAndSelect);
        measure("any other select", rows, "", "", select);
        measure("insert", rows, kCipher, replacing(kStore),
                [&] { ASSERT_EQ(0, object_->SodInsert(extra)); });
        measure("delete", rows, kCipher, replacing(kStore),
                [&] { ASSERT_EQ(0, object_->SodDelete(extra)); });
        measure("delete of nothing", rows, "", "",
                [&] { ASSERT_EQ(0, object_->SodDelete(extra)); });
        stop();
        soft_.setPatchLevel(options().patch_level + static_cast<uint32_t>(rows));
        measure(
            "first query after a system update", rows, characteristics + "upgradeKey, " + kCipher,
            opening + ", " + replacing("edbk") + ", " + replacing("edbk_digest"), startAndSelect);
    }
    for (const auto& [name, calls] : times_) {
        expected_ << "| " << name;
        for (const double milliseconds : kTransports) {
            expected_ << " | " << static_cast<double>(calls) * milliseconds;
        }
        expected_ << " |\n";
    }

    std::ifstream page(ZELKM_DOCS_DIR "/device-costs.md");
    std::string shown;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| ", 0) == 0 && line.rfind("| operation", 0) != 0 &&
            line.rfind("| ---", 0) != 0) {
            shown += line + "\n";
        }
    }
    EXPECT_EQ(expected_.str(), shown);
}

// The transport's limit makes a store too large. Beyond it a change succeeds and discloses the
// store, since the library takes the failed call for an answer.
TEST_F(DeviceCosts, OutgrowTheTransportBetween17000And18000Objects) {
    Deviation device;
    device.transport_limit = (1 << 20) - 2 * 4096;
    for (const size_t rows : {size_t{17000}, size_t{18000}}) {
        km_.deviate({});
        ASSERT_NO_FATAL_FAILURE(makeStore(rows));
        km_.deviate(device);
        clearLog();
        SODOperationParam extra = objectParam(rows);
        EXPECT_EQ(0, object_->SodInsert(extra));
        EXPECT_EQ(rows == 18000, text(kStore).find("object-") != std::string::npos);
        EXPECT_EQ(rows == 18000, !errors().empty());
        stop();
        start();
        std::vector<std::string> found;
        EXPECT_EQ(rows == 18000 ? ZELKM_MALFORMED_STORE : 0, object_->SodSelect(extra, found));
    }
}

}  // namespace
