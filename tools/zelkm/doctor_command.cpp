// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that says what is wrong with a store directory, and repairs what it can prove.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>

#include "bytes.h"
#include "command_line.h"
#include "doctor_report.h"
#include "failure.h"
#include "files.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

struct DoctorOptions {
    std::vector<std::string> dirs;
    bool repair = false;
    bool json = false;
};

// Writes a new file, and flushes it. Fails when the name is taken.
Descriptor create(const Directory& directory, const std::string& name, const std::string& content) {
    const std::string path = directory.path() + "/" + name;
    Descriptor file(::openat(directory.fd(), name.c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    require(file.get() >= 0, path);
    writeAll(file.get(), content, path);
    require(::fsync(file.get()) == 0, path);
    return file;
}

void flush(const Directory& directory) {
    require(::fsync(directory.fd()) == 0, directory.path());
}

// Replaces a file by a rename, so that the old or the new version is always there.
void replace(const Directory& directory, const std::string& name, const std::string& content) {
    const std::string fresh = name + kLeftoverSuffix;
    require(::unlinkat(directory.fd(), fresh.c_str(), 0) == 0 || errno == ENOENT, fresh);
    create(directory, fresh, content);
    require(::renameat(directory.fd(), fresh.c_str(), directory.fd(), name.c_str()) == 0, name);
}

// A repair changes nothing that belongs to another user than the one who repairs.
void requireOwnership(const Evidence& evidence, const std::vector<Change>& changes) {
    const auto require_own = [](const struct stat& status, const std::string& what,
                                const std::string& why) {
        if (status.st_uid != ::geteuid()) {
            throw Refused(what + " belongs to another user (" + std::to_string(status.st_uid) +
                          ")" + why);
        }
    };
    require_own(evidence.directory, evidence.path, ": only that user can repair it");
    for (const Change& change : changes) {
        if (const FileEvidence* file = evidence.find(change.file)) {
            require_own(file->status, change.file, " than the directory: it is not replaced");
        }
    }
}

// Copies the files that the changes touch into a new folder, with their times, and returns its
// name.
std::string keepCopies(const Directory& directory, const Evidence& evidence,
                       const std::vector<Change>& changes) {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    ::localtime_r(&now, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &parts);
    const std::string first = std::string(kCopiesPrefix) + stamp;
    std::string name = first;
    for (int again = 2; ::mkdirat(directory.fd(), name.c_str(), 0700) != 0; ++again) {
        require(errno == EEXIST, directory.path() + "/" + name);
        name = first + "-" + std::to_string(again);
    }
    const Directory copies = directory.folder(name);
    for (const Change& change : changes) {
        if (const FileEvidence* file = evidence.find(change.file)) {
            const Descriptor copy = create(copies, change.file, *file->content);
            const struct timespec times[] = {file->status.st_atim, file->status.st_mtim};
            require(::futimens(copy.get(), times) == 0, copies.path());
        }
    }
    flush(copies);
    flush(directory);
    return name;
}

// Makes the changes in their order, through the directory's descriptor and with newly made files.
void makeChanges(const Directory& directory, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        if (change.content) {
            replace(directory, change.file, *change.content);
        } else {
            require(::unlinkat(directory.fd(), change.file.c_str(), 0) == 0, change.file);
        }
        flush(directory);
    }
}

Directory openDirectory(const std::string& path) {
    try {
        return Directory(path);
    } catch (const Refused& refused) {
        throw WrongUsage(refused.what());
    }
}

// Reads the directory. Throws WrongUsage when its user has no right to look at something in it:
// that says nothing about the store.
Evidence readAsUser(const Directory& directory) {
    const bool is_owner = directory.status().st_uid == ::geteuid();
    try {
        Evidence evidence = collectEvidence(directory);
        for (const std::string& name : usedNames()) {
            const FileEvidence* file = evidence.find(name);
            if (!is_owner && file != nullptr && file->isUnreadable()) {
                throw Refused(file->problem);
            }
        }
        return evidence;
    } catch (const Refused& refused) {
        if (is_owner) {
            throw;
        }
        throw WrongUsage(std::string(refused.what()) +
                         ": only the directory's owner and root can look at it");
    }
}

int examineOne(const SessionOptions& session, const DoctorOptions& options) {
    const Directory directory = openDirectory(session.dir);
    const DirectoryLock lock(
        directory, session,
        options.repair ? DirectoryLock::Mode::kExclusive : DirectoryLock::Mode::kShared);
    KeyTrials trials(directory);
    Report report = examine(readAsUser(directory), &trials);
    if (options.repair && !report.diagnosis.changes.empty()) {
        const std::vector<Change> changes = report.diagnosis.changes;
        const StoreFiles repaired = applied(report.evidence.storeFiles(), changes);
        requireOwnership(report.evidence, changes);
        const std::string copies = keepCopies(directory, report.evidence, changes);
        makeChanges(directory, changes);
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

// Returns the worst exit status of all directories.
int runDoctor(const SessionOptions& session, const DoctorOptions& options) {
    if (options.dirs.size() <= 1) {
        return examineOne(
            options.dirs.empty() ? session : withDirectory(session, options.dirs.front()), options);
    }
    int worst = kExitDone;
    std::cout << (options.json ? "[" : "");
    for (const std::string& dir : options.dirs) {
        const bool first = &dir == &options.dirs.front();
        std::cout << (options.json ? (first ? "" : ",")
                                   : escape(dir) + (session.quiet ? ": " : ":\n"));
        bool done = false;
        const int status = exitStatusOf([&] {
            const int result = examineOne(withDirectory(session, dir), options);
            done = true;
            return result;
        });
        if (!done) {
            std::cout << (options.json ? "null" : "not examined\n");
        }
        const auto rank = [](int each) { return (each + 3) % 4; };  // worst first: 1, 2, 3, 0
        worst = rank(status) < rank(worst) ? status : worst;
    }
    std::cout << (options.json ? "]\n" : "");
    return worst;
}

}  // namespace

void defineDoctor(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "doctor", "Diagnose and repair a store directory", runDoctor);
    addOption(command, "DIR", options.dirs, "", "The directories; default: that of --dir");
    command.add_flag("--repair", options.repair, "Make the changes in the report, and keep copies");
    command.add_flag("--json", options.json, "Print a JSON object, or an array for several");
    command.footer(R"(Identifies every file in the directory and its subfolders by its content,
decrypts the store if the software keymaster's root key is there, and evaluates
the error files. Reports what is wrong, what that means, and what to do.

Exit status:
  0  healthy: everything was read, and the store was decrypted with its key
  1  something is wrong
  2  the directory cannot be read, or not by this user
  3  not decided: nothing is wrong, but something, usually the key, is missing

--repair makes the changes that the report lists. Each was tested in memory
first, with the library if there is a key. The files that they touch are copied
to a new folder doctor-YYYYMMDD-HHMMSS. No other program may use the store
meanwhile. Root acts as the directory's owner.

With --quiet only the verdict is printed. For several directories the exit
status is the worst one, in the order 1, 2, 3, 0.

  zelkm doctor store
  zelkm doctor --repair store)");
}

}  // namespace zelkm_tool
