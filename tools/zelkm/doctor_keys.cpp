// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_keys.h"

#include "bytes.h"
#include "result_text.h"
#include "session.h"

namespace zelkm_tool {
namespace {

constexpr size_t kDigestLen = 32;

const std::string kKey = kKeyFile;
const std::string kDigest = kKeyDigestFile;
const std::string kDigestBackup = kDigest + kBackupSuffix;
const std::string kKeyBackup = kKey + kBackupSuffix;

}  // namespace

Keys::Keys(const StoreFiles& files, const KeyStatus& status)
    : files_(files), status_(status), by_digest_(keyOfDigest(files)) {
    for (const std::string& name : versionsOf(kKey)) {
        if (!contentOf(name).empty()) {
            named_.push_back({name, contentOf(name)});
        }
    }
}

std::string Keys::contentOf(const std::string& name) const {
    const auto found = files_.find(name);
    return found == files_.end() ? std::string() : found->second;
}

void Keys::judge(const std::string& opening, bool is_needed, Diagnosis* diagnosis) const {
    judgeKey(opening, is_needed, &diagnosis->findings);
    judgeDigest(opening, is_needed, &diagnosis->findings);
    judgeLeftovers(opening, &diagnosis->findings);
    if (has(kDigest) && !named_.empty()) {
        diagnosis->checked.push_back(
            kDigest + " against " + named_.front().first +
            (named_.size() > 1 ? " and others" : "") +
            (by_digest_.empty() ? ": it fits none" : ": it is the digest of " + by_digest_));
    }
}

void Keys::judgeKey(const std::string& opening, bool is_needed, Findings* findings) const {
    const std::string right = opening.empty() ? by_digest_ : opening;
    const bool missing = contentOf(kKey).empty();
    if (right == kKey || (right.empty() && !missing) || (missing && right.empty() && !is_needed)) {
        return;
    }
    Finding finding;
    finding.severity = Severity::kWrong;
    if (missing) {
        finding.name = "key-missing";
        finding.what = kKey + (has(kKey) ? " is empty" : " is missing") +
                       ": the library makes a new key, which cannot decrypt the store";
    } else {
        finding.name = "key-displaced";
        finding.what = kKey + " is not the key of this store, " + right + " is";
    }
    if (right.empty()) {
        finding.proof = "the names that are there";
        finding.lost = "every object, unless the key is found elsewhere";
        finding.needs = named_.empty() ? "the key: look for " + kKey +
                                             " in other copies of the directory, before the "
                                             "service runs again"
                                       : "which of " + kKey +
                                             "'s other versions is the key: neither a digest nor a "
                                             "decryption tells";
    } else {
        finding.proof = opening.empty() ? kDigest + " is the digest of " + right
                                        : right + " decrypts the store";
        if (opening.empty() && status_ && status_(contentOf(right)) == ZELKM_OK) {
            finding.lost = "every object in a version that neither of them decrypts";
            finding.needs = "another key: " + right + " was tried, and decrypts no store here";
        } else {
            finding.lost = "nothing, as long as the library has not run on it";
            finding.changes = {{kKey, contentOf(right), right, right}};
            if (right == kKey + kTemporarySuffix) {
                finding.changes.push_back({right, std::nullopt, "", "no longer needed"});
            }
        }
    }
    findings->push_back(finding);
}

// Judges the digest. The library reads it when the keymaster refuses the key. When key and digest
// differ, the library takes the key for damaged and makes a new one. Without a digest it keeps the
// key.
void Keys::judgeDigest(const std::string& opening, bool is_needed, Findings* findings) const {
    const std::string name = !opening.empty() ? opening : !by_digest_.empty() ? by_digest_ : kKey;
    const std::string key = contentOf(name);
    const std::string digest = contentOf(kDigest);
    if (key.empty() || digest == sha256(key)) {
        return;
    }
    const bool counts = digest.size() == kDigestLen;
    Finding finding;
    finding.name = counts ? "digest-mismatch" : "digest-missing";
    finding.severity = Severity::kWrong;
    finding.proof = counts ? "the SHA-256 of the key files" : "the size of " + kDigest;
    if (!counts) {
        finding.what = kDigest + (has(kDigest) ? " is not 32 bytes long, and counts as missing"
                                               : " is missing");
        finding.lost = "nothing; a damaged key could not be told from a good one";
    } else {
        finding.what =
            kDigest + " is not the digest of " + name +
            (by_digest_.empty()
                 ? ""
                 : " but of " + by_digest_ + " (a change of keys stopped between the two)") +
            ": if the keymaster refuses the key once, the library makes a new one, and the store "
            "is lost";
        finding.lost = "nothing yet";
    }
    if (!opening.empty()) {
        finding.changes = {{kDigest, sha256(key), "", "the SHA-256 of " + opening}};
    } else if (counts && is_needed) {
        finding.changes = {{kDigest, std::nullopt, "",
                            "without one the library keeps a refused key, and nothing else "
                            "changes"}};
        finding.lost += "; either " + name + " or its digest is damaged, or from elsewhere";
    } else {
        finding.needs = "that " + name +
                        " is the key: then its digest could be written anew; "
                        "without one the library works, and keeps a refused key";
    }
    findings->push_back(finding);
}

void Keys::judgeLeftovers(const std::string& opening, Findings* findings) const {
    const std::string used = opening.empty() ? by_digest_ : opening;
    for (const std::string& base : {kKey, kDigest}) {
        const std::string name = base + kTemporarySuffix;
        if (!has(name) || name == used) {
            continue;
        }
        Finding finding = {"key-change-unfinished",
                           Severity::kWrong,
                           "a replacement of " + base + " stopped: " + name + " is left of it",
                           name,
                           "nothing",
                           ""};
        if (!used.empty()) {
            finding.changes = {{name, std::nullopt, "", used + " is the key"}};
        } else {
            finding.needs = "which file is the key; the next change of keys overwrites it";
        }
        findings->push_back(finding);
    }
    judgeBackup(opening, findings);
    // The keymaster's answer to the current key explains why a store was not tried.
    if (status_ && opening.empty() && !contentOf(kKey).empty() &&
        status_(contentOf(kKey)) != ZELKM_OK) {
        findings->push_back(
            {"key-not-accepted", Severity::kUnchecked,
             "the keymaster does not take " + kKey + ": " + resultText(status_(contentOf(kKey))),
             "", "",
             "the root key that it was made under, or the --patch-level that it "
             "was last used at"});
    }
}

// Judges the backups of key and digest. The library writes both together, and reads neither.
void Keys::judgeBackup(const std::string& opening, Findings* findings) const {
    const std::string backup = contentOf(kKeyBackup);
    if (backup.empty()) {
        return;
    }
    Finding finding = {"key-backup-mismatch", Severity::kWrong, "", "", "", ""};
    if (!opening.empty() && status_(backup) != ZELKM_OK) {
        finding.what = "the keymaster does not take " + kKeyBackup;
        finding.proof = resultText(status_(backup));
        finding.changes = {{kKeyBackup, std::nullopt, "", "it opens nothing"}};
    } else if (has(kDigestBackup) && contentOf(kDigestBackup) != sha256(backup)) {
        finding.what = kDigestBackup + " is not the digest of " + kKeyBackup;
        finding.proof = "the SHA-256 of " + kKeyBackup;
        finding.needs = opening.empty() ? "which of the two is damaged" : "";
    } else {
        return;
    }
    if (!opening.empty() && has(kDigestBackup)) {
        finding.changes.push_back({kDigestBackup, std::nullopt, "", "nothing reads it"});
    }
    finding.lost = "nothing that the library reads; " + kKeyBackup + " may be of no use any more";
    findings->push_back(finding);
}

}  // namespace zelkm_tool
