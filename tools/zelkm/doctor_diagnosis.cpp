// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The diagnosis of the store's three versions; see doctor_findings.h. protected_file.h has the
// steps of a replacement, and doctor_keys.cpp the diagnosis of the key.

#include <algorithm>

#include "doctor_keys.h"
#include "session.h"

namespace zelkm_tool {
namespace {

const std::string kStore = kStoreFile;
const std::string kTemporary = kStore + kTemporarySuffix;
const std::string kBackup = kStore + kBackupSuffix;

constexpr char kStartsEmpty[] =
    "; the library starts with an empty store, and the next change replaces what is left";

class Doctor {
  public:
    Doctor(const StoreFiles& files, const Decrypt& decrypt, const KeyStatus& key_status)
        : files_(files), keys_(files, key_status) {
        for (const std::string& name : versionsOf(kStore)) {
            if (files.count(name) != 0) {
                diagnosis_.readings[name] = readStore(files.at(name), keys_.named(), decrypt);
            }
        }
    }

    Diagnosis run() {
        const std::string chosen = chooseStore();
        const std::string key = chosen.empty() ? "" : reading(chosen).key;
        lookAtCurrent(chosen);
        lookAtTemporary(chosen);
        lookAtBackup();
        compareVersions();
        keys_.judge(key, needsKey(), &diagnosis_);
        diagnosis_.decrypted = chosen == kStore && key == kKeyFile && !reading(kStore).corrected();
        return std::move(diagnosis_);
    }

  private:
    bool has(const std::string& name) const { return files_.count(name) != 0; }
    const StoreReading& reading(const std::string& name) const {
        return diagnosis_.readings.at(name);
    }
    void add(Finding finding) { diagnosis_.findings.push_back(std::move(finding)); }
    std::string wordsFor(const std::string& name) const { return name + " " + reading(name).words; }

    bool needsKey() const {
        return std::any_of(diagnosis_.readings.begin(), diagnosis_.readings.end(),
                           [](const auto& entry) {
                               const StoreReading& r = entry.second;
                               return r.state == StoreReading::kNotTried ||
                                      r.state == StoreReading::kRefused || !r.key.empty();
                           });
    }

    // Names the version to use: the first one that reads, in the order current, new, old. A version
    // that is complete but untried may take the place of one that can never be read.
    std::string chooseStore() const {
        for (const std::string& name : versionsOf(kStore)) {
            if (!has(name)) {
                continue;
            }
            const StoreReading& r = reading(name);
            // When only a backup is left, somebody may have removed the store on purpose.
            const bool may_stand_in = name == kTemporary || (name == kBackup && has(kStore));
            if (r.reads() || (r.looksWhole() && may_stand_in)) {
                return name;
            }
            // This version may be good, although it could not be tried. No older one may take its
            // place.
            if (r.state == StoreReading::kNotTried ||
                (r.state == StoreReading::kIncomplete && !r.hopeless)) {
                return "";
            }
        }
        return "";
    }

    // The changes that put the chosen version in the place of the current one.
    std::vector<Change> putStore(const std::string& chosen) const {
        if (chosen.empty() || (chosen == kStore && !reading(kStore).corrected())) {
            return {};
        }
        const StoreReading& r = reading(chosen);
        std::vector<Change> changes = {
            {kStore, r.reads() ? r.image : files_.at(chosen), chosen,
             chosen + (r.corrected() ? ", with its header put right" : "")}};
        if (has(kTemporary)) {
            changes.push_back({kTemporary, std::nullopt, "", "no longer needed"});
        }
        return changes;
    }

    std::string lossOf(const std::string& chosen) const {
        if (chosen == kBackup) {
            return "the last change; the version before it is in " + kBackup;
        }
        if (chosen == kTemporary) {
            return "nothing: the new version is complete in " + kTemporary;
        }
        if (chosen == kStore) {
            return "nothing: all rows are there";
        }
        return has(kBackup) || has(kTemporary)
                   ? "not known: no version in the directory could be proved to be good"
                   : "every object, as far as this directory can tell";
    }

    void lookAtCurrent(const std::string& chosen) {
        if (!has(kStore)) {
            lookAtMissing(chosen);
            return;
        }
        const StoreReading& r = reading(kStore);
        if (r.reads() && r.key.empty() && !r.corrected()) {
            add({"store-plaintext", Severity::kUnchecked,
                 wordsFor(kStore) + "; the library writes none with a keymaster",
                 "the header's flags are 0, and the payload parses as rows",
                 "secrecy; and whoever may write the file can have written it",
                 "where the store comes from"});
        } else if (r.looksWhole()) {
            add({"store-not-decrypted", Severity::kUnchecked, wordsFor(kStore), "", "",
                 "the key: whether the payload is as it was written, and how many rows it holds, "
                 "shows only when it is decrypted"});
        } else if (!r.finding.empty()) {
            const std::vector<Change> changes = putStore(chosen);
            add({r.finding, Severity::kWrong, wordsFor(kStore),
                 r.state == StoreReading::kRefused ? "the keymaster takes the key, and answers -30"
                 : r.key.empty()                   ? "the bytes of the file"
                                                   : "the decrypted payload",
                 r.finding == "answer-lost"
                     ? "no object; the rows lay readable on the disk: treat them as disclosed"
                     : lossOf(chosen),
                 changes.empty() ? whyNothingHelps() : "", changes});
        }
    }

    std::string whyNothingHelps() const {
        const auto any = [this](auto test) {
            return std::any_of(diagnosis_.readings.begin(), diagnosis_.readings.end(),
                               [&](const auto& entry) { return test(entry.second); });
        };
        if (has(kBackup) &&
            !any([](const StoreReading& r) { return r.state != StoreReading::kRefused; })) {
            return "the key: every version is complete, and none opens, so that it is rather the "
                   "key that is another one. Look for the key before in other copies of the "
                   "directory";
        }
        if (any([](const StoreReading& r) {
                return r.state == StoreReading::kNotTried ||
                       (r.state == StoreReading::kIncomplete && !r.hopeless);
            })) {
            return "the key: which version is good shows only when it is decrypted. Keep a copy of "
                   "the directory before the service runs again";
        }
        return "another copy of the directory or another root key, or the --patch-level that the "
               "key was last used at; without one remove the store and key files, and enroll again";
    }

    void lookAtMissing(const std::string& chosen) {
        if (!has(kTemporary) && !has(kBackup)) {
            add({"no-store", Severity::kUnchecked, "there is no store in the directory", "", "",
                 std::string("whether anything was stored before") +
                     (has(kKeyFile) ? "; the key that is there may have had a store" : "")});
            return;
        }
        const bool complete =
            has(kTemporary) && (reading(kTemporary).reads() || reading(kTemporary).looksWhole());
        std::string what = "there is no " + kStore;
        if (complete) {
            what += has(kBackup) ? ": its replacement stopped after the first rename; " + kBackup +
                                       " is the version before, " + kTemporary + " the new one"
                                 : ": it was being written, nothing else is there, and " +
                                       kTemporary + ", complete, did not get its name";
        } else if (has(kTemporary)) {
            what += "; " + wordsFor(kTemporary) +
                    (has(kBackup) ? ", and " + kBackup + " is an older version"
                     : has(kKeyFile) || has(std::string(kKeyFile) + kBackupSuffix)
                         ? "; whether it was the first one cannot be told: there is a key, which "
                           "may have had a store before"
                         : "; it would have been the first one");
        } else {
            what += ", and " + kBackup +
                    " is there: two writers at once, a restore that was interrupted, or somebody "
                    "who removed the store leave this";
        }
        const std::vector<Change> changes = putStore(chosen);
        std::string needs;
        if (changes.empty() && has(kBackup) && reading(kBackup).looksWhole()) {
            needs =
                "that nobody removed the store on purpose, and that the version before the "
                "last change is wanted: then 'cp -a " +
                kBackup + " " + kStore + "', before the service runs again";
        } else if (changes.empty()) {
            needs = whyNothingHelps();
        }
        add({complete ? "replacement-interrupted" : "store-missing", Severity::kWrong, what,
             "the names that are there, and the lengths in their headers",
             lossOf(complete ? kTemporary : chosen) + kStartsEmpty, needs, changes});
    }

    void lookAtTemporary(const std::string& chosen) {
        if (!has(kTemporary) || !has(kStore)) {
            return;
        }
        const StoreReading& r = reading(kTemporary);
        const bool partial = r.state == StoreReading::kIncomplete;
        Finding finding = {
            "replacement-unfinished",
            Severity::kWrong,
            "a replacement of " + kStore + " stopped before its first rename: " + kTemporary +
                (partial ? " (partial)" : " (complete)") + " is the version that was to come",
            wordsFor(kTemporary),
            "the change that was being made",
            ""};
        if (chosen == kTemporary) {
            finding.needs = "nothing: it takes the place of the current one";
        } else if (partial || (chosen == kStore && r.state != StoreReading::kNotTried)) {
            finding.changes = {{kTemporary, std::nullopt, "", "the current version is in use"}};
        } else {
            finding.needs =
                "whether the current version opens: if so, it can be removed, and the "
                "next change overwrites it";
        }
        add(finding);
    }

    void lookAtBackup() {
        if (!has(kBackup)) {
            return;
        }
        const StoreReading& r = reading(kBackup);
        if (r.reads() && r.key.empty()) {
            add({"backup-plaintext", Severity::kUnchecked, wordsFor(kBackup),
                 "the header's flags are 0, and the payload parses as rows", "",
                 "where it comes from"});
        } else if (r.reads() && r.key != kKeyFile) {
            add({"backup-of-another-key", Severity::kNote, wordsFor(kBackup),
                 "which key decrypts it", "", ""});
        }
        if (r.finding.empty()) {
            return;
        }
        Finding finding = {"backup-damaged",
                           Severity::kWrong,
                           wordsFor(kBackup),
                           "the bytes of the file",
                           "the way back to the version before; the current one is another file",
                           ""};
        if (r.reads()) {
            finding.changes = {{kBackup, r.image, kBackup, "with its header put right"}};
        } else if (r.hopeless && r.state == StoreReading::kIncomplete && has(kStore)) {
            finding.changes = {
                {kBackup, std::nullopt, "", "a part of a store cannot be decrypted"}};
        } else if (r.state == StoreReading::kRefused) {
            finding.needs =
                "the key that it was written under, if that was another one: look for "
                "one before the next change replaces the backup";
        } else {
            finding.needs = "nothing: the next change replaces it";
        }
        add(finding);
    }

    // Compares the headers of untried versions. A decrypted version needs no such guess.
    void compareVersions() {
        std::string earlier;
        std::string seen;
        for (const std::string& name : {kBackup, kStore, kTemporary}) {
            if (!has(name)) {
                continue;
            }
            seen += (seen.empty() ? "" : ", ") + name;
            const StoreReading& r = reading(name);
            if (!earlier.empty() && r.looksWhole() &&
                (reading(earlier).looksWhole() || reading(earlier).reads())) {
                const std::string why = whyNotOneChange(files_.at(earlier), files_.at(name));
                if (!why.empty()) {
                    add({"versions-contradict", Severity::kWrong,
                         name + " cannot be what one change made of " + earlier +
                             ": a header was changed, a write that failed went in with the next, "
                             "or one of them is from elsewhere",
                         "by their headers " + name + " has " + why,
                         "a row count that is too small hides the last objects",
                         "the key: the decrypted payload says how many rows there are"});
                }
            }
            earlier = name;
        }
        if (!seen.empty()) {
            diagnosis_.checked.push_back("sizes and header fields of " + seen);
        }
    }

    const StoreFiles& files_;
    Keys keys_;
    Diagnosis diagnosis_ = {};
};

}  // namespace

Diagnosis diagnose(const StoreFiles& files, const Decrypt& decrypt, const KeyStatus& key_status) {
    return Doctor(files, decrypt, key_status).run();
}

}  // namespace zelkm_tool
