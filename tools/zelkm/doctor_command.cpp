// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_command.h"

#include <unistd.h>

#include <iostream>

#include "directory_lock.h"
#include "doctor_repair.h"
#include "doctor_report.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

Directory openDirectory(const std::string& path) {
    try {
        return Directory(path);
    } catch (const Refused& refused) {
        throw WrongUsage(refused.what());
    }
}

// Reads the directory. Throws WrongUsage when its user has no right to look at a file: what such a
// file holds says nothing about the store.
Evidence readAsUser(const Directory& directory) {
    Evidence evidence = collectEvidence(directory);
    const std::string unread = evidence.unread();
    if (!unread.empty() && !evidence.files.at(unread).problem.empty() &&
        S_ISREG(evidence.files.at(unread).status.st_mode) &&
        evidence.directory.st_uid != ::geteuid()) {
        throw WrongUsage(evidence.files.at(unread).problem +
                         ": only the directory's owner and root can read it");
    }
    return evidence;
}

}  // namespace

int runDoctor(const SessionOptions& session, const DoctorOptions& options) {
    const Directory directory = openDirectory(session.dir);
    const DirectoryLock lock(
        directory, session,
        options.repair ? DirectoryLock::Mode::kExclusive : DirectoryLock::Mode::kShared);
    StoreTrials trials(directory);
    Report report = examine(readAsUser(directory), &trials);
    if (options.repair && !report.diagnosis.changes.empty()) {
        const std::vector<Change> changes = report.diagnosis.changes;
        const StoreFiles repaired = applied(report.evidence.storeFiles(), changes);
        const std::string copies = repair(directory, report.evidence, changes);
        report = examine(collectEvidence(directory), &trials);
        report.repaired = changes;
        report.copies = copies;
        if (report.evidence.storeFiles() != repaired) {
            throw Refused(
                "the files have changed since they were written: is another program using the "
                "store?");
        }
    }
    if (options.json) {
        printJson(std::cout, report);
    } else {
        printText(std::cout, report, session.quiet);
    }
    if (options.repair && report.repaired.empty() && report.verdict() == Verdict::kWrong) {
        std::cerr << "zelkm: not repaired: no safe repair found\n";
    }
    return static_cast<int>(report.verdict());
}

}  // namespace zelkm_tool
