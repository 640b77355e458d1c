// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What an operation costs on a device: keymaster calls, bytes through the keymaster's transport,
// file calls, flushes, and bytes read and written. docs/device-costs.md must show these counts.

#include <soft_keymaster/fault_keymaster.h>

#include <functional>
#include <sstream>

#include "engine.h"
#include "file_faults.h"
#include "kept_reports.h"
#include "store_fixture.h"

namespace {

using soft_keymaster::CallRecord;
using soft_keymaster::Fault;
using soft_keymaster::FaultKeymaster;
using soft_keymaster::hidl_vec;
using soft_keymaster::KeyParameter;
using soft_keymaster::SoftKeymaster;
using namespace test;

constexpr char kRest[] = "^creator1^1000,12345^[10000..10999]^12345^^\n";

std::string aliasOf(size_t number) {
    return "object-" + std::to_string(100000000 + number);
}

// An object that takes 60 bytes in the store.
SODOperationParam objectParam(size_t number) {
    std::string alias = aliasOf(number);
    std::string creator = "creator1", admin = "1000,12345", accessor = "[10000..10999]";
    std::string uid = "12345";
    SODOperationParam p;
    p.addAliasInWhere(alias).addCreatorToOutput().setAlias(alias).setCreator(creator);
    return p.setAdmin(admin).setAccessor(accessor).setCreatorUid(uid);
}

// Counts one parameter as its tag, a value of eight bytes, and its blob.
size_t lengthOf(const hidl_vec<KeyParameter>& params) {
    size_t len = 0;
    for (const KeyParameter& param : params) {
        len += 12 + param.blob.size();
    }
    return len;
}

class DeviceCosts : public InTempDir {
  protected:
    void makeStore(size_t rows) {
        std::string payload;
        for (size_t i = 0; i < rows; ++i) {
            payload += aliasOf(i) + kRest;
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

    // Runs the operation, whose calls must be those that are kept, and adds its costs to the table.
    void measure(const std::string& name, const std::function<void()>& operation) {
        km_.reset();
        size_t answered = 0;
        km_.planEachCall(Fault::alter([&answered](soft_keymaster::Answer& answer) {
            answered += answer.output.size() + lengthOf(answer.params) +
                        lengthOf(answer.characteristics.softwareEnforced) +
                        lengthOf(answer.characteristics.hardwareEnforced);
        }));
        const FileFaults files;
        operation();
        const std::vector<CallRecord> records = km_.calls();
        km_.reset();

        size_t sent = 0;
        std::string calls;
        for (const CallRecord& record : records) {
            sent += record.key_blob.size() + lengthOf(record.params) + record.input.size();
            calls += soft_keymaster::callName(record.call) + std::string("\n");
        }

        size_t flushes = 0;
        size_t read = 0;
        size_t written = 0;
        for (const std::string& call : files.trace()) {
            std::string word;
            size_t len = 0;
            if (std::istringstream(call) >> word >> len) {
                (word == "read" ? read : written) += len;
            }
            flushes += word == "flush";
            calls += (len != 0 ? word : call) + "\n";
        }
        static const KeptReports kept(ZELKM_TEST_DATA_DIR "/calls.txt");
        kept.expect(name, calls);

        std::ostringstream counts;
        counts << "| " << name;
        for (const size_t count : {records.size(), sent, answered, files.calls().size() - flushes,
                                   flushes, read, written}) {
            counts << " | " << count;
        }
        expected_ += counts.str() + " |\n";
    }

    SoftKeymaster soft_{storeOptions()};
    FaultKeymaster km_{soft_};
    ObjectPtr object_;
    std::string expected_;
};

TEST_F(DeviceCosts, AreTheDocumentedOnes) {
    constexpr size_t kRows = 1000;
    SODOperationParam first = objectParam(0), find = objectParam(kRows / 2);
    SODOperationParam extra = objectParam(kRows);
    const auto insert = [&] { ASSERT_EQ(0, object_->SodInsert(extra)); };
    const auto remove = [&] { ASSERT_EQ(0, object_->SodDelete(extra)); };
    const auto select = [&] {
        std::vector<std::string> found;
        ASSERT_EQ(0, object_->SodSelect(find, found));
        ASSERT_EQ(2u, found.size());
    };
    const auto startAndSelect = [&] {
        start();
        select();
    };
    measure("first insert in an empty directory", [&] {
        start();
        ASSERT_EQ(0, object_->SodInsert(first));
    });
    ASSERT_NO_FATAL_FAILURE(makeStore(kRows));
    stop();
    measure("first query of a process", startAndSelect);
    measure("any other select", select);
    measure("insert", insert);
    measure("delete", remove);
    measure("delete of nothing", remove);
    stop();
    soft_.setPatchLevel(storeOptions().patch_level + 1);
    measure("first query after a system update", startAndSelect);

    std::ifstream page(ZELKM_DOCS_DIR "/device-costs.md");
    std::string shown;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| ", 0) == 0 && line.rfind("| operation", 0) != 0 &&
            line.rfind("| ---", 0) != 0) {
            shown += line + "\n";
        }
    }
    EXPECT_EQ(expected_, shown);
}

// The transport's limit makes a store too large. Beyond it a change succeeds and discloses the
// store, since the library takes the failed call for an answer.
TEST_F(DeviceCosts, OutgrowTheTransportBetween17000And18000Objects) {
    soft_keymaster::Deviation device;
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
