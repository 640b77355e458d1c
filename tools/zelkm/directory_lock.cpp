// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "directory_lock.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "failure.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPoll = std::chrono::milliseconds(10);
constexpr auto kSilence = std::chrono::milliseconds(500);  // until the first note on waiting

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// Names the process that holds the lock, as far as /proc/locks tells. That list shows a file's
// inode only, and no process of another process namespace.
std::string holderOf(int directory) {
    struct stat status = {};
    if (::fstat(directory, &status) != 0) {
        return "another process";
    }
    const std::string inode = ":" + std::to_string(status.st_ino);
    std::ifstream locks("/proc/locks");
    // 1: FLOCK ADVISORY WRITE <process> <device>:<inode> 0 EOF
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, type, advisory, mode, process, file;
        words >> number >> type >> advisory >> mode >> process >> file;
        const bool same = file.size() > inode.size() &&
                          file.compare(file.size() - inode.size(), file.npos, inode) == 0;
        if (type == "FLOCK" && same && process != "0") {
            const std::string name = firstLine("/proc/" + process + "/comm");
            return "process " + process + (name.empty() ? "" : " (" + escape(name) + ")");
        }
    }
    return "another process";
}

// False when another process holds the lock. True when the lock was taken, and also when the file
// system has no locks.
bool tryLock(int directory, int mode, const SessionOptions& options) {
    if (::flock(directory, mode | LOCK_NB) == 0) {
        return true;
    }
    if (errno == EWOULDBLOCK || errno == EINTR) {
        return false;
    }
    note(options, "directory " + options.dir + " cannot be locked (" + std::strerror(errno) +
                      "): take care that nothing else uses it");
    return true;
}

void lock(int directory, int mode, const SessionOptions& options) {
    const auto start = Clock::now();
    bool said = false;
    while (!tryLock(directory, mode, options)) {
        const auto waited = Clock::now() - start;
        if (waited >= std::chrono::seconds(options.wait)) {
            throw Refused("directory " + options.dir + " is in use by " + holderOf(directory) +
                          "; nothing was done (--wait sets how long to wait)");
        }
        if (!said && waited >= kSilence) {
            note(options,
                 "waiting for " + holderOf(directory) + " to leave directory " + options.dir);
            said = true;
        }
        std::this_thread::sleep_for(kPoll);
    }
}

}  // namespace

DirectoryLock::DirectoryLock(const Directory& directory, const SessionOptions& options, Mode mode)
    : directory_(directory.fd()) {
    lock(directory_, mode == Mode::kShared ? LOCK_SH : LOCK_EX, options);
}

DirectoryLock::~DirectoryLock() {
    ::flock(directory_, LOCK_UN);
}

}  // namespace zelkm_tool
