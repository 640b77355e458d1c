// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_command.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "directory_lock.h"
#include "doctor_repair.h"
#include "doctor_report.h"
#include "doctor_trial.h"
#include "failure.h"
#include "result_text.h"

namespace zelkm_tool {
namespace {

Directory openDirectory(const std::string& path) {
    try {
        return Directory(path);
    } catch (const Refused& refused) {
        throw WrongUsage(refused.what());
    }
}

// Null when the root key's file cannot be opened. lookAround() reports what is wrong with that
// file.
std::unique_ptr<StoreTrials> trialsIn(const Directory& directory, const SessionOptions& session) {
    try {
        return std::make_unique<StoreTrials>(directory, session);
    } catch (const Refused&) {
        return nullptr;
    }
}

bool holds(const Findings& findings, const Finding& wanted) {
    return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
        return finding.name == wanted.name && finding.what == wanted.what;
    });
}

// Tries a repair in memory. Throws Refused when the repair would leave a finding that it is meant
// to remove, or would cause a new one. Where the store can be decrypted, also when the library
// would not read it.
void rehearse(const Report& report, const Diagnosis& after, const StoreFiles& repaired,
              StoreTrials* trials) {
    for (const Finding& left : after.findings) {
        const bool was_there = holds(report.findings, left);
        if (left.severity == Severity::kWrong && !left.changes.empty()) {
            throw Refused("not repaired: it would still be wrong that " + left.what);
        }
        if (left.severity == Severity::kWrong && !was_there && left.name != "digest-missing") {
            throw Refused("not repaired: it would then be wrong that " + left.what);
        }
    }
    const auto store = after.readings.find(kStoreFile);
    if (store != after.readings.end() && store->second.reads()) {
        const std::string& key = store->second.key;
        check(trials == nullptr
                  ? ZELKM_OK
                  : trials->open(repaired.at(kStoreFile), key.empty() ? key : repaired.at(key)),
              "not repaired: the library does not read what would be the store");
    }
}

}  // namespace

int runDoctor(const SessionOptions& session, const DoctorOptions& options) {
    const Directory directory = openDirectory(session.dir);
    const DirectoryLock lock(
        directory, session,
        options.repair ? DirectoryLock::Mode::kExclusive : DirectoryLock::Mode::kShared);
    const std::unique_ptr<StoreTrials> trials = trialsIn(directory, session);
    Decrypt decrypt;
    KeyStatus key_status;
    if (trials && trials->canDecrypt()) {
        decrypt = [&trials](const std::string& store, const std::string& key) {
            return trials->decrypt(store, key);
        };
        key_status = [&trials](const std::string& key) { return trials->keyStatus(key); };
    }
    Report report = examine(collectFacts(directory), decrypt, key_status);
    if (options.repair && !report.changes.empty()) {
        const std::vector<Change> changes = report.changes;
        const StoreFiles repaired = applied(report.facts.storeFiles(), changes);
        rehearse(report, diagnose(repaired, decrypt, key_status), repaired,
                 decrypt ? trials.get() : nullptr);
        requireOwnership(report.facts, changes);
        const std::string copies = keepCopies(directory, report.facts, changes);
        makeChanges(directory, changes);
        report = examine(collectFacts(directory), decrypt, key_status);
        report.repaired = changes;
        report.copies = copies;
        if (report.facts.storeFiles() != repaired) {
            throw Refused(
                "the files are not as they were written: is something else using the store?");
        }
    }
    if (options.json) {
        printJson(std::cout, report);
    } else {
        printText(std::cout, report);
    }
    if (options.repair && report.repaired.empty() && report.verdict() == Verdict::kWrong) {
        std::cerr << "zelkm: not repaired: nothing that is proved to be safe would help\n";
    }
    return static_cast<int>(report.verdict());
}

}  // namespace zelkm_tool
