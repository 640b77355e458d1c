// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_repair.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "failure.h"
#include "files.h"

namespace zelkm_tool {
namespace {

void require(bool done, const std::string& path) {
    if (!done) {
        throw Refused(path + ": " + std::strerror(errno));
    }
}

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

void requireOwnership(const Evidence& evidence, const std::vector<Change>& changes) {
    if (evidence.directory.st_uid != ::geteuid()) {
        throw Refused(evidence.path + " belongs to another user (" +
                      std::to_string(evidence.directory.st_uid) +
                      "): only that user can repair it");
    }
    for (const Change& change : changes) {
        const auto found = evidence.files.find(change.file);
        if (found != evidence.files.end() && found->second.status.st_uid != ::geteuid()) {
            throw Refused(change.file + " belongs to another user (" +
                          std::to_string(found->second.status.st_uid) +
                          ") than the directory: it is not replaced");
        }
    }
}

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
        const auto found = evidence.files.find(change.file);
        if (found != evidence.files.end()) {
            const Descriptor copy = create(copies, change.file, *found->second.content);
            const struct timespec times[] = {found->second.status.st_atim,
                                             found->second.status.st_mtim};
            require(::futimens(copy.get(), times) == 0, copies.path());
        }
    }
    flush(copies);
    flush(directory);
    return name;
}

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

}  // namespace

std::string repair(const Directory& directory, const Evidence& evidence,
                   const std::vector<Change>& changes) {
    requireOwnership(evidence, changes);
    const std::string copies = keepCopies(directory, evidence, changes);
    makeChanges(directory, changes);
    return copies;
}

}  // namespace zelkm_tool
