// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Findings about kinds, sizes, modes, owners, times and names; see doctor_findings.h.

#include <algorithm>
#include <cstdlib>

#include "doctor_findings.h"
#include "session.h"

namespace zelkm_tool {
namespace {

constexpr char kLeftoverSuffix[] = ".doctor";
constexpr char kCopiesPrefix[] = "doctor-";
constexpr time_t kCopyingTakes = 2;  // seconds; files of one copy differ by no more

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.npos, end) == 0;
}

class Surroundings {
  public:
    Surroundings(const Facts& facts, std::optional<bool> times_kept)
        : facts_(facts), times_kept_(times_kept), used_(usedNames()) {}

    Findings run() {
        if ((facts_.directory.st_mode & S_IWOTH) != 0) {
            add("writable-by-others", Severity::kWrong, "the directory is writable by others",
                "its mode", "whatever they chose to change",
                "who used it: 'chmod o-w .', after that is known");
        }
        for (const auto& [name, file] : facts_.files) {
            if (std::find(used_.begin(), used_.end(), name) != used_.end()) {
                lookAtFile(name, file);
            } else if (endsWith(name, kLeftoverSuffix) && S_ISREG(file.status.st_mode)) {
                add("doctor-leftover", Severity::kNote,
                    name +
                        " is left of a repair that was interrupted: the next repair of the same "
                        "file replaces it",
                    "its name");
            } else if (!isFolderOfCopies(name, file)) {
                add("foreign-file", Severity::kNote,
                    name + " (" + kindOf(file.status) + ") is not the library's", "its name");
            }
        }
        lookAtOwners();
        lookAtTimes();
        return std::move(findings_);
    }

  private:
    void add(const std::string& name, Severity severity, const std::string& what,
             const std::string& proof, const std::string& lost = "",
             const std::string& needs = "") {
        findings_.push_back({name, severity, what, proof, lost, needs});
    }

    static bool isFolderOfCopies(const std::string& name, const FileFacts& file) {
        return S_ISDIR(file.status.st_mode) && name.rfind(kCopiesPrefix, 0) == 0;
    }

    void lookAtFile(const std::string& name, const FileFacts& file) {
        const struct stat& status = file.status;
        if (!S_ISREG(status.st_mode)) {
            add("not-a-file", Severity::kWrong,
                name + " is " + kindOf(status) + ", where only a regular file can be",
                "its kind; it was not opened", "what the file held, unless it is elsewhere",
                "who put it there: then 'mv " + name + " " + name + ".strange'");
            return;
        }
        if (static_cast<uint64_t>(status.st_size) > kMaxFileLen) {
            add("too-large", Severity::kWrong,
                name + " has " + std::to_string(status.st_size) + " bytes; it was not read",
                "its size; no more than " + std::to_string(kMaxFileLen) + " bytes are read", "",
                "what it is: the library never writes so much");
            return;
        }
        if (!file.problem.empty()) {
            add("unreadable", Severity::kWrong, name + " cannot be read", file.problem,
                "nothing by itself; but a key that cannot be read counts as missing to the library",
                "to whom it should belong: whoever runs the service must own it");
        }
        if ((status.st_mode & S_IWOTH) != 0) {
            add("writable-by-others", Severity::kWrong, name + " is writable by others", "its mode",
                "whatever they chose to change",
                "who used it: 'chmod 600 " + name + "', after that is known");
        } else if ((status.st_mode & (S_IRGRP | S_IROTH | S_IWGRP)) != 0 &&
                   !endsWith(name, ".txt")) {
            add("readable-by-others", Severity::kNote,
                name + " is accessible to others than its owner",
                "its mode, which may be a copy's");
        }
    }

    void lookAtOwners() {
        const FileFacts* first = nullptr;
        std::string first_name;
        for (const auto& [name, file] : facts_.files) {
            if (!file.content) {
                continue;
            }
            if (first == nullptr) {
                first = &file;
                first_name = name;
            } else if (file.status.st_uid != first->status.st_uid) {
                add("mixed-owners", Severity::kWrong,
                    name + " and " + first_name + " belong to different users (" +
                        std::to_string(file.status.st_uid) + ", " +
                        std::to_string(first->status.st_uid) + ")",
                    "their owners",
                    "nothing by itself; but a key that cannot be read counts as missing to the "
                    "library",
                    "which user runs the service: then 'chown' it to that one");
                return;
            }
        }
    }

    const struct stat* statusOf(const std::string& name) const {
        const auto found = facts_.files.find(name);
        return found != facts_.files.end() && found->second.content ? &found->second.status
                                                                    : nullptr;
    }

    // Modification times are only hints: a copy may have new ones, and anybody can set them.
    void lookAtTimes() {
        time_t oldest = 0;
        time_t newest = 0;
        size_t count = 0;
        for (const auto& [name, file] : facts_.files) {
            if (file.content) {
                const time_t time = file.status.st_mtime;
                oldest = count == 0 ? time : std::min(oldest, time);
                newest = count == 0 ? time : std::max(newest, time);
                ++count;
            }
        }
        if (times_kept_ == false) {
            return;
        }
        if (!times_kept_ && count > 1 && newest - oldest <= kCopyingTakes) {
            add("times-of-a-copy", Severity::kNote,
                "the times of the files say nothing: all are of the same moment, as in a copy made "
                "without -a, or after a first start",
                "their times");
            return;
        }
        const std::string store = kStoreFile;
        compare(kKeyFile, store, "key-newer-than-store",
                ": it was upgraded, or made anew, after the last change of the store");
        compare(store + kBackupSuffix, store, "store-older-than-backup",
                ": it was not made from it, or was put there from elsewhere");
        if (statusOf(store + kBackupSuffix) == nullptr) {
            compare(store, kKeyFile, "store-began-anew",
                    ": with no backup it was written once only, but not together with its key, so "
                    "that there was none meanwhile",
                    kCopyingTakes);
        }
        compare(kKeyDigestFile, kKeyFile, "digest-newer-than-key",
                ": they were not written together", kCopyingTakes);
        for (const char* base : {kStoreFile, kKeyFile, kKeyDigestFile}) {
            const std::string name = std::string(base) + kTemporarySuffix;
            const struct stat* temporary = statusOf(name);
            if (temporary != nullptr && temporary->st_mtime >= newest) {
                add("temporary-is-newest", Severity::kNote,
                    name + " is the newest file: what was going on when the process ended",
                    "the times of the files");
            }
        }
    }

    void compare(const std::string& later, const std::string& earlier, const std::string& name,
                 const std::string& meaning, time_t tolerance = 0) {
        const struct stat* a = statusOf(later);
        const struct stat* b = statusOf(earlier);
        if (a != nullptr && b != nullptr && a->st_mtime > b->st_mtime + tolerance) {
            add(name, Severity::kNote, later + " is newer than " + earlier + meaning,
                "the times of the files, if they are not a copy's");
        }
    }

    const Facts& facts_;
    const std::optional<bool> times_kept_;
    const std::vector<std::string> used_;
    Findings findings_;
};

}  // namespace

Findings lookAround(const Facts& facts, std::optional<bool> times_kept) {
    return Surroundings(facts, times_kept).run();
}

}  // namespace zelkm_tool
