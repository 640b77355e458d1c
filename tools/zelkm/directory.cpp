// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "failure.h"
#include "files.h"

namespace zelkm_tool {
namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw Refused(what + ": " + std::strerror(errno));
}

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

void requireReadable(const struct stat& status, const std::string& path) {
    if (!S_ISREG(status.st_mode)) {
        throw Refused(path + ": is " + kindOf(status) + ", not a regular file");
    }
    if (static_cast<uint64_t>(status.st_size) > kMaxFileLen) {
        throw Refused(path + ": has " + std::to_string(status.st_size) + " bytes; more than " +
                      std::to_string(kMaxFileLen) + " are not read");
    }
}

}  // namespace

const char* kindOf(const struct stat& status) {
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return "a regular file";
        case S_IFDIR:
            return "a directory";
        case S_IFLNK:
            return "a link";
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

Directory::Directory(const std::string& path)
    : Directory(path, ::open(path.c_str(), kDirectoryFlags)) {}

Directory::Directory(const std::string& path, int fd) : path_(path), fd_(fd) {
    if (fd < 0) {
        refuse("directory " + path);
    }
}

struct stat Directory::status() const {
    struct stat status = {};
    if (::fstat(fd(), &status) != 0) {
        refuse("directory " + path_);
    }
    return status;
}

std::vector<std::string> Directory::names() const {
    const int read_from = ::openat(fd(), ".", kDirectoryFlags);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(
        read_from < 0 ? nullptr : ::fdopendir(read_from), ::closedir);
    if (entries == nullptr) {
        refuse("directory " + path_);
    }
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
    if (errno == ENOENT) {
        return std::nullopt;
    }
    refuse(path_ + "/" + name);
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
    if (file.get() < 0 || ::fstat(file.get(), &opened) != 0) {
        refuse(path);
    }
    requireReadable(opened, path);
    return file;
}

std::optional<std::string> Directory::read(const std::string& name) const {
    const std::optional<Descriptor> file = open(name);
    return file ? std::optional(readAll(file->get(), path_ + "/" + name)) : std::nullopt;
}

Directory Directory::folder(const std::string& name) const {
    return {path_ + "/" + name, ::openat(fd(), name.c_str(), kDirectoryFlags | O_NOFOLLOW)};
}

void becomeOwnerOf(const Directory& directory) {
    const struct stat owner = directory.status();
    if (::geteuid() != 0 || owner.st_uid == 0) {
        return;
    }
    if (::setgroups(0, nullptr) != 0 || ::setgid(owner.st_gid) != 0 ||
        ::setuid(owner.st_uid) != 0) {
        refuse("acting as the owner of " + directory.path());
    }
}

}  // namespace zelkm_tool
