// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What happened to a store directory. See doctor_diagnosis.h, and protected_file.h for the steps of
// a replacement.

#include "doctor_diagnosis.h"

#include <algorithm>

#include "bytes.h"
#include "session.h"

namespace zelkm_tool {
namespace {

constexpr size_t kDigestLen = 32;

class Doctor {
  public:
    Doctor(const StoreFiles& files, const Decrypt& decrypt) : files_(files) {
        NamedKeys keys;
        for (const std::string& name : versionsOf(kKeyFile)) {
            if (!contentOf(name).empty()) {
                keys.push_back({name, contentOf(name)});
            }
        }
        for (const std::string& name : versionsOf(kStoreFile)) {
            if (files_.count(name) != 0) {
                readings_[name] = readStore(contentOf(name), keys, decrypt);
            }
        }
        tried_ = decrypt != nullptr;
    }

    Diagnosis run() {
        const std::string chosen = chooseStore();
        const std::string key = chosen.empty() ? "" : readings_[chosen].key;
        lookAtStore(chosen);
        lookAtKey(key);
        lookAtDigest(key);
        if (!chosen.empty()) {
            putStore(chosen);
        }
        giveAdvice();
        listStores();
        return std::move(diagnosis_);
    }

  private:
    static std::vector<std::string> versionsOf(const std::string& name) {
        return {name, name + kTemporarySuffix, name + kBackupSuffix};
    }

    bool has(const std::string& name) const { return files_.count(name) != 0; }
    std::string contentOf(const std::string& name) const {
        const auto found = files_.find(name);
        return found == files_.end() ? std::string() : found->second;
    }
    void problem(const std::string& text) { diagnosis_.problems.push_back(text); }
    void note(const std::string& text) { diagnosis_.notes.push_back(text); }
    void change(const std::string& file, const std::optional<std::string>& content,
                const std::string& source) {
        diagnosis_.changes.push_back({file, content, source});
    }

    // The first version that reads: the current one, else the new one, else the old one.
    std::string chooseStore() const {
        for (const std::string& name : versionsOf(kStoreFile)) {
            const auto found = readings_.find(name);
            if (found == readings_.end()) {
                continue;
            }
            if (found->second.state == StoreReading::kReads) {
                return name;
            }
            // What cannot be tried may be good: nothing older may take its place.
            if (found->second.state == StoreReading::kNotTried) {
                return "";
            }
        }
        return "";
    }

    std::string wordsFor(const std::string& name) const {
        return name + " " + readings_.at(name).words;
    }

    void lookAtStore(const std::string& chosen) {
        if (readings_.empty()) {
            note("there is no store");
            return;
        }
        const std::string temporary = std::string(kStoreFile) + kTemporarySuffix;
        const std::string backup = std::string(kStoreFile) + kBackupSuffix;
        if (!has(kStoreFile)) {
            lookAtInterruption(chosen, temporary, backup);
            return;
        }
        const StoreReading& reading = readings_.at(kStoreFile);
        if (has(temporary)) {
            note("a replacement of " + std::string(kStoreFile) +
                 " stopped before its first rename: " + temporary +
                 (readings_.at(temporary).state == StoreReading::kIncomplete ? " (partial)"
                                                                             : " (complete)") +
                 " is the version that was to come; the next change overwrites it");
        }
        if (reading.state == StoreReading::kNotTried) {
            note(wordsFor(kStoreFile));
        } else if (reading.state != StoreReading::kReads || reading.corrected) {
            problem(wordsFor(kStoreFile));
        }
    }

    void lookAtInterruption(const std::string& chosen, const std::string& temporary,
                            const std::string& backup) {
        constexpr char kDanger[] =
            "; the library starts with an empty store, and the next change replaces what is left";
        if (has(temporary) && has(backup)) {
            problem("a replacement of " + std::string(kStoreFile) +
                    " stopped after its first rename: " + backup + " is the version before, " +
                    temporary + " the new one" + kDanger);
        } else if (has(backup)) {
            problem(
                std::string(kStoreFile) + " is missing, and " + backup +
                " is there: a restore of the backup stopped half-way, or the store was removed" +
                kDanger);
        } else if (has(temporary)) {
            const bool partial = readings_.at(temporary).state == StoreReading::kIncomplete;
            problem("the first " + std::string(kStoreFile) + " was being written: " + temporary +
                    (partial ? " is a part of it, and nothing was stored before"
                             : " is complete, and did not get its name") +
                    kDanger);
            if (partial && chosen.empty()) {
                change(temporary, std::nullopt, "a part of a store that never was");
            }
        }
    }

    // Without those of which everything is said already.
    void listStores() {
        for (const std::string& name : versionsOf(kStoreFile)) {
            const auto is_it = [&](const std::string& text) { return text == wordsFor(name); };
            if (has(name) &&
                std::none_of(diagnosis_.problems.begin(), diagnosis_.problems.end(), is_it) &&
                std::none_of(diagnosis_.notes.begin(), diagnosis_.notes.end(), is_it)) {
                diagnosis_.files.push_back(wordsFor(name));
            }
        }
    }

    // `opening` is the key that decrypts the chosen store; empty when there is none.
    void lookAtKey(const std::string& opening) {
        const bool is_needed = needsKey();
        if (contentOf(kKeyFile).empty() && is_needed) {
            problem(std::string(kKeyFile) + (has(kKeyFile) ? " is empty" : " is missing") +
                    ": the library makes a new key, which cannot decrypt the store");
        } else if (!opening.empty() && opening != kKeyFile) {
            problem(std::string(kKeyFile) + " is not the key of this store, " + opening + " is");
        }
        if (!opening.empty() && opening != kKeyFile) {
            change(kKeyFile, contentOf(opening), opening);
        }
        const std::string temporary = std::string(kKeyFile) + kTemporarySuffix;
        if (has(kKeyFile) && has(temporary) && opening != temporary) {
            note("a replacement of " + std::string(kKeyFile) +
                 " stopped before its first rename; " + temporary + " is a leftover");
        }
    }

    bool needsKey() const {
        for (const auto& [name, reading] : readings_) {
            if (reading.state == StoreReading::kNotTried || !reading.key.empty() ||
                reading.state == StoreReading::kRefused) {
                return true;
            }
        }
        return false;
    }

    // The library consults the digest when the keymaster refuses the key: when the two differ, it
    // takes the key for damaged and makes a new one. Without a digest it keeps the key.
    void lookAtDigest(const std::string& opening) {
        const std::string key_name = opening.empty() ? kKeyFile : opening;
        const std::string key = contentOf(key_name);
        const std::string digest = contentOf(kKeyDigestFile);
        if (key.empty() || digest == sha256(key)) {
            return;
        }
        const bool counts = digest.size() == kDigestLen;
        const std::string words =
            std::string(kKeyDigestFile) + (counts ? otherOwnerOf(digest, key_name) : notADigest());
        if (!opening.empty()) {
            problem(words);
            change(kKeyDigestFile, sha256(key), "the SHA-256 of " + opening);
        } else if (counts && needsKey()) {
            problem(words);
            diagnosis_.advice.push_back("move " + std::string(kKeyDigestFile) +
                                        " away: without one the library keeps a refused key");
        } else {
            note(words);
        }
    }

    std::string notADigest() const {
        return has(kKeyDigestFile) ? " is not 32 bytes long, and counts as missing" : " is missing";
    }

    std::string otherOwnerOf(const std::string& digest, const std::string& key_name) const {
        std::string words = " is not the digest of " + key_name;
        for (const std::string& other : versionsOf(kKeyFile)) {
            if (has(other) && digest == sha256(contentOf(other))) {
                words += " but of " + other + " (a change of keys stopped between the two)";
            }
        }
        return words +
               ": if the keymaster refuses the key once, the library makes a new one, and "
               "the store is lost";
    }

    void putStore(const std::string& chosen) {
        const StoreReading& reading = readings_.at(chosen);
        if (chosen == kStoreFile && !reading.corrected) {
            return;
        }
        change(kStoreFile, reading.image,
               chosen + (reading.corrected ? ", with its header put right" : ""));
        const std::string temporary = std::string(kStoreFile) + kTemporarySuffix;
        if (has(temporary)) {
            change(temporary, std::nullopt, "no longer needed");
        }
    }

    void giveAdvice() {
        auto& advice = diagnosis_.advice;
        if (diagnosis_.problems.empty() || !diagnosis_.changes.empty() || !advice.empty()) {
            return;
        }
        if (!tried_ && needsKey()) {
            advice.push_back(
                "without the keymaster that made the key nothing can be checked: keep a copy of "
                "the directory, then by hand give the newest whole version its name (first .tmp, "
                "then .bak), and start the device; when it refuses that one, try the other");
        } else if (needsKey()) {
            advice.push_back(
                "no version here can be read: keep a copy of the directory, and look for another "
                "root key, or say the --patch-level that the key was last used at; else the "
                "objects are lost: remove the store and key files, and enroll again");
        } else {
            advice.push_back(
                "no version here can be read: keep a copy of the directory, remove "
                "the files named above, and enroll again");
        }
    }

    const StoreFiles& files_;
    bool tried_ = false;
    std::map<std::string, StoreReading> readings_;
    Diagnosis diagnosis_;
};

}  // namespace

Diagnosis diagnose(const StoreFiles& files, const Decrypt& decrypt) {
    return Doctor(files, decrypt).run();
}

}  // namespace zelkm_tool
