// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>
#include <utility>

#include "bytes.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr int kMaxLinks = 40;
constexpr gid_t kNoGroup = 65534;

// Where a link leads. Throws Refused when it belongs to another user.
std::filesystem::path followLink(const Descriptor& link, const struct stat& status,
                                 const std::filesystem::path& path) {
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        throw Refused("directory " + path.string() + " is a link of another user (" +
                      std::to_string(status.st_uid) +
                      "), who can redirect it: give the directory itself");
    }
    char target[4096];
    const ssize_t len = ::readlinkat(link.get(), "", target, sizeof(target));
    require(len >= 0, "directory " + path.string());
    return path.parent_path() / std::string(target, static_cast<size_t>(len));
}

void requireReadable(const struct stat& status, const std::string& path) {
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path + ": is " + kindOf(status) + ", not a regular file");
    }
    if (static_cast<uint64_t>(status.st_size) > kMaxFileLen) {
        throw Refused(path + ": has " + std::to_string(status.st_size) + " bytes; more than " +
                      std::to_string(kMaxFileLen) + " are not read");
    }
}

using Clock = std::chrono::steady_clock;

constexpr auto kPoll = std::chrono::milliseconds(10);
constexpr auto kSilence = std::chrono::milliseconds(500);  // until the first note on waiting

// Names the process that holds the lock, as far as /proc/locks tells. That list shows a file's
// inode only, and no process of another process namespace.
std::string holderOf(const Directory& directory) {
    const std::string inode = ":" + std::to_string(directory.status().st_ino);
    std::ifstream locks("/proc/locks");
    // 1: FLOCK ADVISORY WRITE <process> <device>:<inode> 0 EOF
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, type, advisory, mode, process, file;
        words >> number >> type >> advisory >> mode >> process >> file;
        const bool same = file.size() > inode.size() &&
                          file.compare(file.size() - inode.size(), file.npos, inode) == 0;
        if (type == "FLOCK" && same && process != "0") {
            std::ifstream comm("/proc/" + process + "/comm");
            std::string name;
            std::getline(comm, name);
            return "process " + process + (name.empty() ? "" : " (" + escape(name) + ")");
        }
    }
    return "another process";
}

}  // namespace

const char* kindOf(const struct stat& status) {
    static const std::map<mode_t, const char*> kinds = {{S_IFREG, "a regular file"},
                                                        {S_IFDIR, "a directory"},
                                                        {S_IFLNK, "a link"},
                                                        {S_IFIFO, "a FIFO"},
                                                        {S_IFSOCK, "a socket"}};
    const auto found = kinds.find(status.st_mode & S_IFMT);
    return found != kinds.end() ? found->second : "a device";
}

Descriptor openFolder(const std::string& path) {
    std::filesystem::path at = path;
    for (int links = 0; links < kMaxLinks; ++links) {
        // "link/" and "link/." would follow the link.
        while (at.has_relative_path() && (!at.has_filename() || at.filename() == ".") &&
               at != "." && at.parent_path() != "") {
            at = at.parent_path();
        }
        Descriptor folder(::open(at.c_str(), kDirectoryFlags | O_NOFOLLOW));
        if (folder.get() >= 0) {
            return folder;
        }
        const int error = errno;
        struct stat status = {};
        const Descriptor link(::open(at.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        const bool is_link =
            link.get() >= 0 && ::fstat(link.get(), &status) == 0 && S_ISLNK(status.st_mode);
        errno = error;
        require(is_link, "directory " + path);
        at = followLink(link, status, at);
    }
    throw Refused("directory " + path + ": " + std::strerror(ELOOP));
}

std::string otherWriters(const struct stat& status) {
    if ((status.st_mode & S_IWOTH) != 0) {
        return "everybody";
    }
    if ((status.st_mode & S_IWGRP) == 0 || status.st_gid == 0) {
        return "";
    }
    const passwd* owner = ::getpwuid(status.st_uid);
    const group* group = ::getgrgid(status.st_gid);
    const bool is_owners = owner != nullptr && group != nullptr && *group->gr_mem == nullptr &&
                           std::strcmp(owner->pw_name, group->gr_name) == 0;
    return is_owners ? "" : "its group";
}

OwnersRights::OwnersRights(uid_t owner) : group_(::getegid()) {
    if (::geteuid() != 0 || owner == 0) {
        return;
    }
    const int num_groups = ::getgroups(0, nullptr);
    groups_.resize(static_cast<size_t>(std::max(num_groups, 0)));
    const passwd* known = ::getpwuid(owner);
    const gid_t group = known != nullptr ? known->pw_gid : kNoGroup;
    std::vector<gid_t> groups(known != nullptr ? 65536 : 0);
    int count = static_cast<int>(groups.size());
    require(::getgroups(num_groups, groups_.data()) == num_groups &&
                (known == nullptr ||
                 ::getgrouplist(known->pw_name, group, groups.data(), &count) >= 0) &&
                ::setgroups(static_cast<size_t>(count), groups.data()) == 0 &&
                ::setegid(group) == 0 && ::seteuid(owner) == 0,
            "acting as user " + std::to_string(owner));
    active_ = true;
}

OwnersRights::~OwnersRights() {
    if (active_ && (::seteuid(0) != 0 || ::setegid(group_) != 0 ||
                    ::setgroups(groups_.size(), groups_.data()) != 0)) {
        std::terminate();
    }
}

Directory::Directory(const std::string& path) : Directory(path, openFolder(path)) {}

Directory::Directory(const std::string& path, Descriptor fd)
    : path_(path), fd_(std::move(fd)), rights_(status().st_uid) {}

struct stat Directory::status() const {
    struct stat status = {};
    require(::fstat(fd(), &status) == 0, "directory " + path_);
    return status;
}

std::vector<std::string> Directory::names() const {
    const int read_from = ::openat(fd(), ".", kDirectoryFlags);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(
        read_from < 0 ? nullptr : ::fdopendir(read_from), ::closedir);
    require(entries != nullptr, "directory " + path_);
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<struct stat> Directory::look(const std::string& name) const {
    struct stat status = {};
    if (::fstatat(fd(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return status;
    }
    require(errno == ENOENT, path_ + "/" + name);
    return std::nullopt;
}

std::optional<Descriptor> Directory::open(const std::string& name) const {
    const std::optional<struct stat> entry = look(name);
    if (!entry) {
        return std::nullopt;
    }
    const std::string path = path_ + "/" + name;
    requireReadable(*entry, path);
    // The entry may have changed since look(). O_NONBLOCK keeps open() from waiting for a FIFO, and
    // O_NOFOLLOW from following a link.
    Descriptor file(
        ::openat(fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat opened = {};
    require(file.get() >= 0 && ::fstat(file.get(), &opened) == 0, path);
    requireReadable(opened, path);
    return file;
}

std::optional<std::string> Directory::read(const std::string& name) const {
    const std::optional<Descriptor> file = open(name);
    return file ? std::optional(readAll(file->get(), path_ + "/" + name)) : std::nullopt;
}

Directory Directory::folder(const std::string& name) const {
    Descriptor folder(::openat(fd(), name.c_str(), kDirectoryFlags | O_NOFOLLOW));
    require(folder.get() >= 0, path_ + "/" + name);
    return {path_ + "/" + name, std::move(folder)};
}

DirectoryLock::DirectoryLock(const Directory& directory, const SessionOptions& options, Mode mode)
    : directory_(directory.fd()) {
    const auto start = Clock::now();
    bool said = false;
    while (::flock(directory_, (mode == Mode::kShared ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {  // a file system without locks
            note(options, "directory " + options.dir + " cannot be locked (" +
                              std::strerror(errno) + "): take care that nothing else uses it");
            return;
        }
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

DirectoryLock::~DirectoryLock() {
    ::flock(directory_, LOCK_UN);
}

}  // namespace zelkm_tool
