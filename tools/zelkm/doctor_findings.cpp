// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_findings.h"

#include <algorithm>

namespace zelkm_tool {
namespace {

using Id = FindingId;

constexpr Severity kWrong = Severity::kWrong;
constexpr Severity kNotChecked = Severity::kNotChecked;
constexpr Severity kNote = Severity::kNote;

constexpr char kNoRemedy[] = "nothing";
constexpr char kAfterLoss[] =
    "look for what is lost in other copies of the directory. The status stays 1 until the error "
    "files are removed";

std::vector<FindingKind> makeKinds() {
    return {
        {Id::kNoStore, "no-store", kNotChecked, "There is no version of a store.",
         "if there was one, look for it elsewhere before the service runs again"},
        {Id::kStoreMissing, "store-missing", kWrong,
         "There is no `secure_objects.db`, and no complete new version. The library starts empty, "
         "and its next change removes what is left.",
         "`--repair`; or, without the key, make sure that nobody removed the store on purpose, and "
         "that the version from before the last change is the right one: then copy the `.bak`"},
        {Id::kReplacementInterrupted, "replacement-interrupted", kWrong,
         "There is no `secure_objects.db`, and the new version is complete in `.tmp`: its "
         "replacement stopped between two renames. The library starts empty, and its next change "
         "replaces both.",
         "`--repair`"},
        {Id::kReplacementUnfinished, "replacement-unfinished", kWrong,
         "There is a `.tmp` beside the store: the last change was not completed.",
         "`--repair`; or nothing, if the store opens: the next change replaces it"},
        {Id::kStoreEmpty, "store-empty", kWrong,
         "The file is empty or holds only zeros, as after a power cut.",
         "`--repair` takes a complete version; without one look for another copy"},
        {Id::kStoreCut, "store-cut", kWrong,
         "Bytes are missing at the end, or the header's payload length is wrong.",
         "`--repair`; without the key keep a copy of the directory: only decryption can "
         "distinguish the two"},
        {Id::kStoreDamaged, "store-damaged", kWrong,
         "64 or more zero bytes in a row, which no ciphertext has: a part of the file was never "
         "written.",
         "`--repair` takes a complete version; without one look for another copy"},
        {Id::kStoreHeader, "store-header", kWrong,
         "Header fields contradict each other or the payload. The encryption does not "
         "protect flags, row count and payload length, and a row count that is too small hides "
         "objects.",
         "`--repair` corrects them if the key is there"},
        {Id::kStoreRefused, "store-refused", kWrong,
         "The keymaster accepts the key, but the key does not decrypt this file: it is damaged, or "
         "was encrypted with another key.",
         "`--repair` takes a version that decrypts; without one look for another copy, or for the "
         "previous key"},
        {Id::kStoreMalformed, "store-malformed", kWrong,
         "The rows cannot be parsed, or their number differs from the header's.",
         "look for another copy"},
        {Id::kAnswerLost, "answer-lost", kWrong,
         "The file is plaintext, and marked as encrypted: a reply of the keymaster was lost. No "
         "object is lost, but treat them as disclosed.",
         "`--repair`"},
        {Id::kNoStoreFile, "no-store-file", kWrong, "The file is not a store.",
         "find out what put it there. `--repair` replaces it only if the key is there, with a "
         "version that decrypts"},
        {Id::kDisguised, "disguised", kWrong,
         "The file was encoded, compressed or mangled in transit.",
         "reverse that with the command that the report names, into a new file; then move it over "
         "the old one. What has U+FFFD in place of bytes cannot be reversed"},
        {Id::kStoreNotDecrypted, "store-not-decrypted", kNotChecked,
         "The store is complete, but no key could be tried: its contents were not checked.",
         "provide the keymaster's root key, if there is one"},
        {Id::kStorePlaintext, "store-plaintext", kNotChecked,
         "The file is readable plaintext: anyone with write access could have written it.",
         "find out where it comes from"},
        {Id::kPlaintextBesideEncrypted, "plaintext-beside-encrypted", kWrong,
         "The store is plaintext, and its backup is encrypted: a library with a keymaster never "
         "produces this pair.",
         "find out who wrote it; the backup may be the last good version"},
        {Id::kBackupDamaged, "backup-damaged", kWrong,
         "The `.bak` is not a complete store that opens. The store itself is not affected.",
         "nothing: the next change replaces it. If it was encrypted with another key, look for "
         "that key"},
        {Id::kStoreElsewhere, "store-elsewhere", kNote,
         "There is, or may be, a store under another name or in a subfolder. It may be the newest, "
         "so no older version takes the store's place.",
         "compare the two; copy the right one to `secure_objects.db`, or move the other one out of "
         "the directory"},
        {Id::kKeyMissing, "key-missing", kWrong,
         "There is no `edbk`, or it is empty. The library makes a new key, which does not open the "
         "store.",
         "`--repair`, if a version of the key is here; or look for it in other copies, before the "
         "service runs again"},
        {Id::kKeyDisplaced, "key-displaced", kWrong,
         "`edbk` does not open the store, but another version of the key does.", "`--repair`"},
        {Id::kKeyNotAccepted, "key-not-accepted", kNotChecked,
         "The keymaster does not accept `edbk`: it is damaged, or was made with another root key.",
         "provide the right root key"},
        {Id::kKeyElsewhere, "key-elsewhere", kNote,
         "There is a key under another name or in a subfolder.",
         "if `edbk` is missing or wrong, copy it there"},
        {Id::kKeyChangeUnfinished, "key-change-unfinished", kWrong,
         "A `.tmp` of the key or of its digest is left over: a replacement was interrupted.",
         "`--repair`; or nothing, if the store opens: the next key change replaces it"},
        {Id::kKeyBackupMismatch, "key-backup-mismatch", kWrong,
         "`edbk_digest.bak` is not the digest of `edbk.bak`, or the keymaster does not accept "
         "`edbk.bak`. The library reads neither.",
         "`--repair`; or nothing"},
        {Id::kDigestMissing, "digest-missing", kWrong,
         "There is no digest of 32 bytes. A damaged key cannot be told from a good one.",
         "`--repair` with the key; or nothing"},
        {Id::kDigestMismatch, "digest-mismatch", kWrong,
         "The digest is not that of `edbk`: a key upgrade was interrupted, or one of the two is "
         "damaged or from elsewhere. If the keymaster refuses the key once, the library makes a "
         "new one, and the store is lost.",
         "`--repair` with the key; without it, try which key opens the store, on a copy"},
        {Id::kNotAFile, "not-a-file", kWrong,
         "A link, FIFO, device or directory has the name of a file. It was not opened.",
         "never just remove a link: the library makes a new key, or an empty store, in its place. "
         "Put what it leads to there (`cp --remove-destination`)"},
        {Id::kTooLarge, "too-large", kWrong, "The file is larger than 64 MiB. It was not read.",
         "find out what it is: the library never writes so much"},
        {Id::kUnreadable, "unreadable", kWrong,
         "The owner of the directory cannot read the file. The library treats it as missing: it "
         "makes a new key, or its next changes replace store and backup.",
         "return the file to its owner (`chown`, `chmod 600`), before the service runs again"},
        {Id::kNotCompared, "not-compared", kNotChecked,
         "Store and key were not compared, because of a file that was not read.", "fix that first"},
        {Id::kNotWritable, "not-writable", kWrong,
         "The owner of the directory cannot write to it: every change returns -1000.",
         "`chmod 700` the directory, or mount its file system for writing"},
        {Id::kMixedOwners, "mixed-owners", kWrong,
         "The library's files belong to different users. Whoever runs the service can lose what it "
         "cannot read.",
         "`chown` them to the user who runs the service"},
        {Id::kWritableByOthers, "writable-by-others", kWrong,
         "Users other than the owner may write here, and could have changed anything.",
         "find out whether someone did; then `chmod go-w`"},
        {Id::kReadableByOthers, "readable-by-others", kNote,
         "Users other than the owner may read the file; or it is the mode of a copy.",
         "`chmod 600`"},
        {Id::kForeignFile, "foreign-file", kNote, "This file is not the library's.", kNoRemedy},
        {Id::kDoctorLeftover, "doctor-leftover", kNote,
         "A repair was interrupted here. The next repair of the same file replaces this.",
         kNoRemedy},
        {Id::kLogStoreRefused, "log-store-refused", kWrong,
         "The error file says that a store was refused. Its backup took its place, if there was "
         "one; without one, or after two refusals, every object is lost.",
         kAfterLoss},
        {Id::kLogKeyMadeAnew, "log-key-made-anew", kWrong,
         "The error file says that a new key was made while there was a store, which it does not "
         "open.",
         kAfterLoss},
        {Id::kLogStoreMissing, "log-store-missing", kWrong,
         "The error file says that the store was missing at a start, after it had been there.",
         kAfterLoss},
        {Id::kLogAnswerLost, "log-answer-lost", kNotChecked,
         "The error file says that a reply of the keymaster was lost, which counts as success. "
         "If the store was being encrypted, it was written as plaintext.",
         "treat its objects as disclosed. The status stays 3 until the error files are removed"},
        {Id::kLogKeyRefused, "log-key-refused", kNote,
         "The error file says that the keymaster did not accept an intact key: it lost its root "
         "key, "
         "or the system was downgraded. Nothing is lost if it accepts the key again.",
         "go back to the system version that last used the key"},
        {Id::kLogCallLost, "log-call-lost", kNote,
         "The error file says that a call to the keymaster was lost while the key was checked or "
         "upgraded. Nothing is lost.",
         "restart the process"},
        {Id::kLogWriteFailed, "log-write-failed", kNote,
         "The error file says that a file could not be written or renamed. The change in progress "
         "was not stored.",
         "free disk space, and check the directory's owner and mode"},
        {Id::kLogTooManyOperations, "log-too-many-operations", kNote,
         "The error file says that the keymaster had too many operations open, so that a call "
         "failed.",
         kNoRemedy},
        {Id::kLogKeyUpgraded, "log-key-upgraded", kNote,
         "The error file says that the key was upgraded. It no longer works on the older system.",
         kNoRemedy},
        {Id::kLogClockJumped, "log-clock-jumped", kNote,
         "The error file's time jumped back. Its events are shown in the order of the file.",
         kNoRemedy},
        {Id::kLogUnknownLines, "log-unknown-lines", kNote,
         "The error files have lines that are not the library's.", kNoRemedy},
    };
}

}  // namespace

const std::vector<FindingKind>& findingKinds() {
    static const auto& kinds = *new std::vector<FindingKind>(makeKinds());
    return kinds;
}

const char* describe(Severity severity) {
    return severity == kWrong ? "wrong" : severity == kNotChecked ? "not checked" : "note";
}

Verdict verdictOf(const std::vector<Finding>& findings) {
    const auto has = [&findings](Severity severity) {
        return std::any_of(findings.begin(), findings.end(), [severity](const Finding& finding) {
            return finding.kind().severity == severity;
        });
    };
    return has(kWrong)        ? Verdict::kWrong
           : has(kNotChecked) ? Verdict::kNotDecided
                              : Verdict::kHealthy;
}

std::string findingsTable() {
    std::string table = "| name | severity | meaning | what to do |\n| --- | --- | --- | --- |\n";
    for (const FindingKind& kind : findingKinds()) {
        table += std::string("| `") + kind.name + "` | " + describe(kind.severity) + " | " +
                 kind.meaning + " | " + kind.advice + " |\n";
    }
    return table;
}

}  // namespace zelkm_tool
