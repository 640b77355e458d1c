// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include <zelkeymaster_result.h>

#include <algorithm>
#include <filesystem>

#include "bytes.h"
#include "doctor_report.h"
#include "failure.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

constexpr size_t kDigestLen = 32;

const std::string kStore = kStoreFile;
const std::string kTemporary = kStore + kTemporarySuffix;
const std::string kBackup = kStore + kBackupSuffix;
const std::string kKey = kKeyFile;
const std::string kKeyBackup = kKey + kBackupSuffix;
const std::string kDigest = kKeyDigestFile;
const std::string kDigestBackup = kDigest + kBackupSuffix;

// The versions of the key that can be tried, the current one first.
NamedKeys keysOf(const StoreFiles& files) {
    NamedKeys keys;
    for (const std::string& name : versionsOf(kKey)) {
        const auto found = files.find(name);
        if (found != files.end() && !isBlank(found->second)) {
            keys.push_back({name, found->second});
        }
    }
    return keys;
}

// The files of the store and its key, and what is to be done about them. protected_file.h has the
// steps of a replacement.
class StoreDoctor {
  public:
    // `elsewhere`: there is a store, or may be, besides these files.
    StoreDoctor(const StoreFiles& files, bool elsewhere, KeyTrials* trials)
        : files_(files), elsewhere_(elsewhere), trials_(trials), by_digest_(keyOfDigest(files)) {
        const NamedKeys keys = keysOf(files);
        for (const std::string& name : versionsOf(kStore)) {
            if (has(name)) {
                diagnosis_.readings[name] = readStore(files.at(name), keys, trials);
            }
        }
    }

    Diagnosis run() {
        const std::string chosen = chooseStore();
        opening_ = reading(chosen).key;
        judgeStore();
        judgeKey();
        judgeDigest();
        judgeVersions(chosen);
        judgeLeftovers();
        putStore(chosen);
        // Nothing is removed before what takes its place is there.
        std::stable_partition(diagnosis_.changes.begin(), diagnosis_.changes.end(),
                              [](const Change& change) { return change.content.has_value(); });
        judgeDisguises();
        diagnosis_.decrypted =
            chosen == kStore && opening_ == kKey && reading(kStore).finding.empty();
        return std::move(diagnosis_);
    }

  private:
    bool has(const std::string& name) const { return files_.count(name) != 0; }
    const std::string& contentOf(const std::string& name) const {
        static const std::string none;
        return has(name) ? files_.at(name) : none;
    }
    const StoreReading& reading(const std::string& name) const {
        static const StoreReading missing = {StoreReading::kMissing, "", ""};
        return has(name) ? diagnosis_.readings.at(name) : missing;
    }
    void add(const std::string& finding, const std::string& file, const std::string& proof) {
        if (!finding.empty()) {
            diagnosis_.findings.push_back({finding, file, proof});
        }
    }
    void replace(const std::string& file, const std::string& content, const std::string& why) {
        diagnosis_.changes.push_back({file, content, why});
    }
    void remove(const std::string& file, const std::string& why) {
        if (has(file)) {
            diagnosis_.changes.push_back({file, std::nullopt, why});
        }
    }

    // Names the version to use; empty when that cannot be decided. No other version takes the place
    // of one that may be good.
    std::string chooseStore() const {
        const StoreReading& store = reading(kStore);
        const StoreReading& temporary = reading(kTemporary);
        const bool is_dead = !has(kStore) || store.state == StoreReading::kDead;
        if (store.reads()) {
            return kStore;
        }
        if (elsewhere_ || (!is_dead && store.state != StoreReading::kRefused)) {
            return "";
        }
        // A version that was not tried takes its place if nothing speaks against it, and if the
        // file that it replaces is of no use at all.
        if (temporary.reads() || (is_dead && temporary.looksWhole())) {
            return kTemporary;
        }
        if (temporary.state == StoreReading::kNotTried ||
            temporary.state == StoreReading::kDisguised) {
            return "";
        }
        // When only a backup is left, somebody may have removed the store on purpose.
        const bool is_alone = !has(kStore) && !has(kTemporary);
        const StoreReading& backup = reading(kBackup);
        return backup.reads() || (is_dead && !is_alone && backup.looksWhole()) ? kBackup : "";
    }

    void judgeStore() {
        const StoreReading& store = reading(kStore);
        const StoreReading& temporary = reading(kTemporary);
        const StoreReading& backup = reading(kBackup);
        const bool is_forged =
            store.finding == "store-plaintext" && (!backup.key.empty() || backup.looksWhole());
        if (has(kStore)) {
            add(is_forged ? "plaintext-beside-encrypted" : store.finding, kStore, store.words);
        } else if (temporary.reads() || temporary.looksWhole()) {
            add("replacement-interrupted", kTemporary, temporary.words);
        } else if (has(kTemporary)) {
            add("store-missing", kStore, kTemporary + " " + temporary.words);
        } else if (has(kBackup)) {
            add("store-missing", kStore, kBackup + " " + backup.words);
        } else {
            add("no-store", "", "there is no such file");
        }
    }

    void judgeVersions(const std::string& chosen) {
        if (has(kTemporary) && has(kStore)) {
            add("replacement-unfinished", kTemporary, reading(kTemporary).words);
            const bool is_partial = reading(kTemporary).state == StoreReading::kDead ||
                                    reading(kTemporary).finding == "store-cut";
            if (chosen == kStore || (is_partial && reading(kStore).looksWhole())) {
                remove(kTemporary, "not completed");
            }
        }
        const StoreReading& r = reading(kBackup);
        if (r.finding == "disguised" || r.finding == "store-plaintext") {
            add(r.finding, kBackup, r.words);
        } else if (!r.finding.empty() && r.finding != "store-not-decrypted") {
            add("backup-damaged", kBackup, r.words);
            if (r.reads()) {
                replace(kBackup, r.image, "with its header corrected");
            } else if (r.state == StoreReading::kDead && (has(kStore) || !chosen.empty())) {
                remove(kBackup, "of no use");
            }
        }
    }

    // Puts the chosen version in the place of the current one. This comes after the key.
    void putStore(const std::string& chosen) {
        if (chosen.empty() || (chosen == kStore && reading(kStore).image == files_.at(kStore))) {
            return;
        }
        const StoreReading& r = reading(chosen);
        replace(kStore, r.reads() ? r.image : files_.at(chosen),
                r.reads() && !r.finding.empty() ? "with its header corrected" : "from " + chosen);
        if (chosen != kStore) {
            remove(kTemporary, "not needed any more");
        }
    }

    bool needsKey() const {
        return std::any_of(
            diagnosis_.readings.begin(), diagnosis_.readings.end(), [](const auto& entry) {
                const StoreReading& r = entry.second;
                return r.state != StoreReading::kDead && (!r.reads() || !r.key.empty());
            });
    }

    void judgeKey() {
        const bool is_missing = isBlank(contentOf(kKey));
        const std::string right = opening_.empty() && is_missing ? by_digest_ : opening_;
        if (!right.empty() && (is_missing || right != kKey)) {
            add(is_missing ? "key-missing" : "key-displaced", kKey,
                opening_.empty() ? kDigest + " is the digest of " + right
                                 : right + " opens the store");
            replace(kKey, contentOf(right), "from " + right);
        } else if (right.empty() && is_missing && needsKey()) {
            add("key-missing", kKey, has(kKey) ? "is empty or zeros" : "there is no such file");
        } else if (right.empty() && !is_missing && trials_->canDecrypt() &&
                   trials_->keyStatus(contentOf(kKey)) != ZELKM_OK) {
            add("key-not-accepted", kKey, resultText(trials_->keyStatus(contentOf(kKey))));
        }
    }

    // Judges the digest. The library reads it when the keymaster refuses the key. When key and
    // digest differ, the library takes the key for damaged and makes a new one. Without a digest it
    // keeps the key.
    void judgeDigest() {
        const std::string key = contentOf(opening_.empty() ? kKey : opening_);
        const std::string digest = contentOf(kDigest);
        if (isBlank(key) || digest == sha256(key)) {
            return;
        }
        const bool counts = digest.size() == kDigestLen;
        add(counts ? "digest-mismatch" : "digest-missing", kDigest,
            !counts              ? std::to_string(digest.size()) + " bytes"
            : by_digest_.empty() ? "it matches no key file"
                                 : "it is the digest of " + by_digest_);
        if (!opening_.empty()) {
            replace(kDigest, sha256(key), "the SHA-256 of " + opening_);
        } else if (counts && needsKey()) {
            remove(kDigest, "without a digest the library keeps a key that the keymaster refuses");
        }
    }

    void judgeLeftovers() {
        const std::string used = !opening_.empty()                                ? opening_
                                 : by_digest_ == kKey || isBlank(contentOf(kKey)) ? by_digest_
                                                                                  : "";
        for (const std::string& base : {kKey, kDigest}) {
            const std::string name = base + kTemporarySuffix;
            if (!has(name)) {
                continue;
            }
            if (name != used) {
                add("key-change-unfinished", name, "it is next to " + base);
            }
            if (!used.empty()) {
                remove(name, "not needed any more");
            }
        }
        // The library writes both backups together, and reads neither.
        const std::string backup = contentOf(kKeyBackup);
        const bool is_refused =
            !opening_.empty() && !backup.empty() && trials_->keyStatus(backup) != ZELKM_OK;
        if (is_refused ||
            (has(kKeyBackup) && has(kDigestBackup) && contentOf(kDigestBackup) != sha256(backup))) {
            add("key-backup-mismatch", kKeyBackup,
                is_refused ? resultText(trials_->keyStatus(backup))
                           : "the SHA-256 is not that in " + kDigestBackup);
            if (!opening_.empty()) {
                remove(kDigestBackup, "nothing reads it");
            }
            if (is_refused) {
                remove(kKeyBackup, "it opens nothing");
            }
        }
    }

    // A key or digest that was encoded on its way makes the others look wrong, so nothing is
    // changed then.
    void judgeDisguises() {
        const auto is_digest = [](std::string_view bytes) { return bytes.size() == kDigestLen; };
        const auto is_key = [this](std::string_view bytes) {
            return sha256(std::string(bytes)) == contentOf(kDigest);
        };
        if (opening_.empty()) {
            const std::string digest = disguiseOf(contentOf(kDigest), is_digest).words;
            const std::string key =
                by_digest_ == kKey ? "" : disguiseOf(contentOf(kKey), is_key).words;
            if (has(kDigest) && !digest.empty()) {
                add("disguised", kDigest, digest);
            }
            if (!key.empty() || (by_digest_ != kKey && isText(contentOf(kKey)))) {
                add("disguised", kKey, key.empty() ? "is text" : key);
            }
        }
        if (std::any_of(diagnosis_.findings.begin(), diagnosis_.findings.end(),
                        [](const Finding& f) { return f.name == "disguised"; })) {
            diagnosis_.changes.clear();
        }
    }

    const StoreFiles& files_;
    const bool elsewhere_;
    KeyTrials* const trials_;
    const std::string by_digest_;
    std::string opening_;  // the key file that decrypts the chosen store; empty when none does
    Diagnosis diagnosis_;
};

// Whether the changes do what they should: a second diagnosis has nothing left to change, and finds
// nothing wrong that was not wrong before. A digest may be missing then (see judgeDigest()), and
// the plaintext that a lost answer left is known as such.
bool areSafe(const Diagnosis& before, const Diagnosis& after) {
    const auto isExpected = [&before](const Finding& finding) {
        return finding.kind().severity != Severity::kWrong || finding.name == "digest-missing" ||
               finding.name == "plaintext-beside-encrypted" ||
               std::any_of(before.findings.begin(), before.findings.end(), [&](const Finding& f) {
                   return f.name == finding.name && f.file == finding.file;
               });
    };
    return after.changes.empty() &&
           std::all_of(after.findings.begin(), after.findings.end(), isExpected);
}

bool isIn(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What is odd about a file of the library or of this tool, but for its content.
std::optional<Finding> lookAt(const std::string& name, const FileEvidence& file) {
    const mode_t mode = file.status.st_mode;
    const auto size = static_cast<uint64_t>(file.status.st_size);
    const std::string writers = otherWriters(file.status);
    const bool is_open = (mode & (S_IRGRP | S_IROTH | S_IWGRP)) != 0 && !isErrorFile(name);
    const struct {
        bool is_so;
        const char* finding;
        std::string proof;
    } oddities[] = {
        {!S_ISREG(mode), "not-a-file", std::string("is ") + kindOf(file.status)},
        {size > kMaxFileLen, "too-large", std::to_string(size) + " bytes"},
        {!file.problem.empty(), "unreadable", file.problem},
        {!writers.empty(), "writable-by-others", "its mode: " + writers},
        {is_open, "readable-by-others", "its mode"},
    };
    for (const auto& [is_so, finding, proof] : oddities) {
        if (is_so) {
            return Finding{finding, name, proof};
        }
    }
    return std::nullopt;
}

// What a file that the library does not use as a store or key holds: a store, or a key. Sets
// `newer` if this may be a store that is newer than the versions of the library.
std::optional<Finding> lookElsewhere(const std::string& name, const FileEvidence& file,
                                     const StoreFiles& files, KeyTrials* trials, bool* newer) {
    const std::string content = file.content.value_or("");
    const bool is_known = std::any_of(files.begin(), files.end(),
                                      [&](const auto& entry) { return entry.second == content; });
    if (looksLikeStore(content)) {
        const StoreReading reading = readStore(content, keysOf(files), trials);
        if (!reading.reads() && reading.state != StoreReading::kNotTried) {
            return std::nullopt;
        }
        *newer = *newer || !is_known;
        return Finding{"store-elsewhere", name, reading.words};
    }
    if (file.may_hold_store) {
        *newer = true;
        return Finding{"store-elsewhere", name, file.about};
    }
    const auto digest = files.find(kDigest);
    const bool is_digests = digest != files.end() && sha256(content) == digest->second;
    const bool is_key =
        is_digests || (trials->canDecrypt() && trials->keyStatus(content) == ZELKM_OK);
    return isBlank(content) || is_known || !is_key
               ? std::nullopt
               : std::optional(
                     Finding{"key-elsewhere", name,
                             is_digests ? kDigest + " is its digest" : "the keymaster accepts it"});
}

// Judges kinds, sizes, modes, owners and names, and what lies under other names. Returns whether
// there may be a store that is newer than the versions of the library.
bool lookAround(const Evidence& evidence, KeyTrials* trials, std::vector<Finding>* findings) {
    const StoreFiles files = evidence.storeFiles();
    bool newer = false;
    if (!evidence.writable) {
        findings->push_back({"not-writable", "", "its mode, or its file system"});
    }
    if (const std::string who = otherWriters(evidence.directory); !who.empty()) {
        findings->push_back({"writable-by-others", "", "its mode: " + who});
    }
    for (const auto& [name, file] : evidence.files) {
        const bool is_used = isIn(usedNames(), name);
        const auto oddity = is_used ? lookAt(name, file) : std::nullopt;
        const auto elsewhere = isIn(storeNames(), name)
                                   ? std::nullopt
                                   : lookElsewhere(name, file, files, trials, &newer);
        for (const auto& finding : {oddity, elsewhere}) {
            if (finding) {
                findings->push_back(*finding);
            }
        }
        if (is_used && file.status.st_uid != evidence.directory.st_uid) {
            findings->push_back({"mixed-owners", name, "the directory has another owner"});
        } else if (!is_used && std::filesystem::path(name).extension() == kLeftoverSuffix) {
            findings->push_back({"doctor-leftover", name, "its name"});
        } else if (!is_used && !elsewhere && name.find('/') == name.npos &&
                   name.rfind(kCopiesPrefix, 0) != 0) {
            findings->push_back(
                {"foreign-file", name, file.about.empty() ? kindOf(file.status) : file.about});
        }
    }
    if (const std::string unread = evidence.unread(); !unread.empty()) {
        findings->push_back({"not-compared", unread, "it was not read"});
    }
    return newer;
}

}  // namespace

StoreFiles applied(StoreFiles files, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        if (change.content) {
            files[change.file] = *change.content;
        } else {
            files.erase(change.file);
        }
    }
    return files;
}

Diagnosis diagnose(const Evidence& evidence, KeyTrials* trials) {
    std::vector<Finding> around;
    const bool elsewhere = lookAround(evidence, trials, &around);
    Diagnosis diagnosis;
    if (evidence.unread().empty()) {
        const StoreFiles files = evidence.storeFiles();
        diagnosis = StoreDoctor(files, elsewhere, trials).run();
        const StoreFiles repaired = applied(files, diagnosis.changes);
        if (!areSafe(diagnosis, StoreDoctor(repaired, elsewhere, trials).run())) {
            diagnosis.changes.clear();
        }
    }
    diagnosis.findings.insert(diagnosis.findings.end(), around.begin(), around.end());
    return diagnosis;
}

}  // namespace zelkm_tool
