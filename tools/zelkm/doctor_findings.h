// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Everything that the doctor can find, with its meaning. This one table serves the reports and
// docs/doctor.md.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

enum class Severity {
    kWrong,       // the directory is not as the library leaves it
    kNotChecked,  // this cannot be decided with what is here
    kNote,        // harmless
};

enum class FindingId {
    // The store
    kNoStore,
    kStoreMissing,
    kReplacementInterrupted,
    kReplacementUnfinished,
    kStoreEmpty,
    kStoreCut,
    kStoreDamaged,
    kStoreHeader,
    kStoreRefused,
    kStoreMalformed,
    kAnswerLost,
    kNoStoreFile,
    kDisguised,
    kStoreNotDecrypted,
    kStorePlaintext,
    kPlaintextBesideEncrypted,
    kBackupDamaged,
    kStoreElsewhere,
    // The key and its digest
    kKeyMissing,
    kKeyDisplaced,
    kKeyNotAccepted,
    kKeyElsewhere,
    kKeyChangeUnfinished,
    kKeyBackupMismatch,
    kDigestMissing,
    kDigestMismatch,
    // The directory
    kNotAFile,
    kTooLarge,
    kUnreadable,
    kNotCompared,
    kNotWritable,
    kMixedOwners,
    kWritableByOthers,
    kReadableByOthers,
    kForeignFile,
    kDoctorLeftover,
    // The error files
    kLogStoreRefused,
    kLogKeyMadeAnew,
    kLogStoreMissing,
    kLogAnswerLost,
    kLogKeyRefused,
    kLogCallLost,
    kLogWriteFailed,
    kLogTooManyOperations,
    kLogKeyUpgraded,
    kLogClockJumped,
    kLogUnknownLines,
};

struct FindingKind {
    FindingId id;
    const char* name;
    Severity severity;
    const char* meaning;  // sentences
    const char* advice;   // what to do, where --repair does not
};

// In the order of the ids.
const std::vector<FindingKind>& findingKinds();

// "wrong", "not checked" or "note".
const char* describe(Severity severity);

struct Finding {
    FindingId id;
    std::string file;   // the file that it is about; empty for the directory
    std::string proof;  // what shows it

    const FindingKind& kind() const { return findingKinds().at(static_cast<size_t>(id)); }
};

enum class Verdict { kHealthy = 0, kWrong = 1, kNotDecided = 3 };  // the exit statuses
Verdict verdictOf(const std::vector<Finding>& findings);

// The table of docs/doctor.md, in Markdown.
std::string findingsTable();

}  // namespace zelkm_tool
