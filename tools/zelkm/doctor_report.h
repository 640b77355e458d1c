// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// From the evidence to the doctor's report: what a version of the store is (doctor_store.cpp), what
// the files show (doctor_diagnosis.cpp), what the error files say (doctor_log.cpp), and how all
// this is printed (doctor_report.cpp).

#pragma once

#include <functional>
#include <iosfwd>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "directory.h"
#include "key_trial.h"

namespace zelkm_tool {

struct Disguise {
    std::string words = {};    // e.g. "is base64: base64 -d"; empty for none
    bool may_hold_it = false;  // it holds what it should be, or is an archive
};

// What these bytes are if they were encoded or packed on their way. `is_right` tells what they
// should be.
using IsRight = std::function<bool(std::string_view)>;
Disguise disguiseOf(std::string_view bytes, const IsRight& is_right);

// The container that the first bytes of a file show, e.g. "is gzip: gzip -dc"; none for others.
Disguise containerOf(std::string_view bytes);

// Whether it is text that people can read.
bool isText(std::string_view bytes);

// What a repair makes: files that it did not finish, and folders with copies.
inline constexpr char kLeftoverSuffix[] = ".doctor";
inline constexpr char kCopiesPrefix[] = "doctor-";

// The contents of the files of the store, the key and the digest, with their backups and temporary
// files, by name. Files that do not exist are left out.
using StoreFiles = std::map<std::string, std::string>;

struct FileEvidence {
    struct stat status;
    std::optional<std::string> content;  // of a regular file that could be read
    std::string problem;                 // why such a file could not be read
    std::string about;                   // what it is, as far as that shows without a key
    bool may_hold_store = false;         // it is a store, or an archive, or was encoded

    // Whether this is a regular file of a size that is read, and could not be read.
    bool isUnreadable() const {
        return S_ISREG(status.st_mode) && !problem.empty() &&
               static_cast<uint64_t>(status.st_size) <= kMaxFileLen;
    }
};

struct Evidence {
    std::string path;
    struct stat directory;
    bool writable;  // for the owner of the directory
    // Everything that is in the directory and one level below, by name ("folder/name").
    std::map<std::string, FileEvidence> files;

    StoreFiles storeFiles() const;

    // Null when there is no such file.
    const FileEvidence* find(const std::string& name) const;

    // The content of this file; null when it is not there or was not read.
    const std::string* content(const std::string& name) const;

    // The name of a file of the store or its key that exists but could not be read; empty for none.
    std::string unread() const;
};

// Throws Refused when the directory cannot be read. A file that cannot be read is evidence.
Evidence collectEvidence(const Directory& directory);

// Whether these are the bytes of an encrypted or plaintext store that is complete by its header.
bool looksLikeStore(std::string_view bytes);

// Whether there is nothing but zeros, or nothing at all.
bool isBlank(std::string_view bytes);

// The key file whose SHA-256 the digest file holds; empty when there is none.
std::string keyOfDigest(const StoreFiles& files);

// What the doctor can find. The names, and what they mean, stand in docs/doctor.md.
enum class Severity {
    kWrong,       // the directory is not as the library leaves it
    kNotChecked,  // this cannot be decided with what is here
    kNote,        // harmless
};

struct FindingKind {
    std::string name;
    Severity severity;
    std::string meaning;  // sentences
    std::string advice;   // what to do, where --repair does not
};

struct Finding {
    std::string name;   // one that the page has
    std::string file;   // the file that it is about; empty for the directory
    std::string proof;  // what shows it

    // Throws std::logic_error for a name that the page does not have.
    const FindingKind& kind() const;
};

// Key blobs to try, each with the name of its file.
using NamedKeys = std::vector<std::pair<std::string, std::string>>;

struct StoreReading {
    enum State {
        kMissing,    // there is no such file
        kReads,      // it can be read: see `image`
        kNotTried,   // it may be whole, and no key could be tried on it
        kDead,       // whatever the key is, and whatever the header should be: it cannot be read
        kRefused,    // no key that the keymaster takes decrypts it, or it is no store
        kDisguised,  // it was encoded or packed
    };
    State state;
    std::string words;    // what shows that; the text continues after a file's name
    std::string finding;  // empty when it is as it should be

    // Only when the store can be read: the file, with its header corrected where needed. Flags, row
    // count and payload length are the fields that the encryption does not protect.
    std::string image = {};
    std::string key = {};  // the file of the key that decrypts it; empty when none does

    bool reads() const { return state == kReads; }
    // The store is encrypted and complete, and nothing that can be seen without a key is wrong.
    bool looksWhole() const { return state == kNotTried && finding == "store-not-decrypted"; }
};

// `file` may hold any bytes.
StoreReading readStore(const std::string& file, const NamedKeys& keys, KeyTrials* trials);

// A file that a repair replaces. Without a content, a file that it removes.
struct Change {
    std::string file;
    std::optional<std::string> content;
    std::string why;  // "from edbk.bak", "not needed any more"
};

// The files as they are after the changes.
StoreFiles applied(StoreFiles files, const std::vector<Change>& changes);

struct Diagnosis {
    std::vector<Finding> findings;                 // in a report also those of the log, worst first
    std::map<std::string, StoreReading> readings;  // of the versions of the store
    // What puts it right, in the order in which it is safe: the key comes before its store. It was
    // tried in memory, by the library where there is a key.
    std::vector<Change> changes;
    bool decrypted = false;  // the current store, with the current key
};

// From the evidence alone.
Diagnosis diagnose(const Evidence& evidence, KeyTrials* trials);

// An event of the log, in words.
struct Moment {
    std::string time;
    std::string where;  // "zelko_err.txt:12"
    std::string what;
};

struct LogEvidence {
    std::vector<Finding> findings;  // each kind once, with its last event
    std::vector<Moment> timeline;   // in the order of the files
};

LogEvidence readErrorFiles(const Evidence& evidence);

enum class Verdict { kHealthy = 0, kWrong = 1, kNotDecided = 3 };  // the exit statuses

struct Report {
    Evidence evidence;
    Diagnosis diagnosis;
    std::vector<Moment> timeline;

    // What a repair has done. Both are empty without a repair.
    std::vector<Change> repaired;
    std::string copies;  // the folder with the files as they were before

    Verdict verdict() const;
};

Report examine(const Evidence& evidence, KeyTrials* trials);

// A file in JSON: "name", "kind", "size", "mode", "uid", "gid" and "modified", and all but the name
// for people.
nlohmann::ordered_json describeJson(const std::string& name, const struct stat& status);
std::string describe(const nlohmann::ordered_json& file);

// The member of an object that is a string.
std::string textOf(const nlohmann::ordered_json& json, const char* name);

// Texts are printed from the JSON, so that both say the same.
void printText(std::ostream& out, const Report& report, bool verdict_only);
void printJson(std::ostream& out, const Report& report);

}  // namespace zelkm_tool
