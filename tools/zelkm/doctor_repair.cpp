// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Changes to a store directory. See doctor_repair.h.

#include "doctor_repair.h"

#include <fcntl.h>
#include <sys/stat.h>
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

// Makes what was written to a file, or the entries of a directory, last.
void flush(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = fd >= 0 && ::fsync(fd) == 0;
    const int error = errno;
    if (fd >= 0) {
        ::close(fd);
    }
    errno = error;
    require(done, path);
}

void writeDurably(const std::string& path, const std::string& content) {
    writeOutput(path, content, Access::kOwnerOnly);
    flush(path);
}

// Whoever repairs, the files stay their owner's: who may use the directory may use them.
void giveToOwnerOf(const std::string& dir, const std::string& path) {
    struct stat owner = {};
    require(::stat(dir.c_str(), &owner) == 0, dir);
    if (owner.st_uid != ::geteuid()) {
        require(::chown(path.c_str(), owner.st_uid, owner.st_gid) == 0, path);
    }
}

// Replaces a file so that it is there at any time, old or new.
void replace(const std::string& dir, const std::string& name, const std::string& content) {
    const std::string fresh = dir + "/" + name + ".doctor";
    require(::unlink(fresh.c_str()) == 0 || errno == ENOENT, fresh);
    writeDurably(fresh, content);
    giveToOwnerOf(dir, fresh);
    require(::rename(fresh.c_str(), (dir + "/" + name).c_str()) == 0, name);
}

}  // namespace

std::string keepCopies(const std::string& dir, const StoreFiles& files,
                       const std::vector<Change>& changes) {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    ::localtime_r(&now, &parts);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "doctor-%Y%m%d-%H%M%S", &parts);
    std::string name = stamp;
    for (int again = 2; ::mkdir((dir + "/" + name).c_str(), 0700) != 0; ++again) {
        require(errno == EEXIST, dir + "/" + name);
        name = stamp + ("-" + std::to_string(again));
    }
    for (const Change& change : changes) {
        const auto found = files.find(change.file);
        if (found != files.end()) {
            writeDurably(dir + "/" + name + "/" + change.file, found->second);
        }
    }
    flush(dir + "/" + name);
    flush(dir);
    return name;
}

void makeChanges(const std::string& dir, const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        if (change.content) {
            replace(dir, change.file, *change.content);
        } else {
            require(::unlink((dir + "/" + change.file).c_str()) == 0, change.file);
        }
        flush(dir);
    }
}

}  // namespace zelkm_tool
