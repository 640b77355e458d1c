// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A directory whose files are not trusted: somebody else may have made them, and may be changing
// them. The object holds the directory open, and reaches files through its descriptor only. It
// follows no link, reads nothing but regular files, and reads none that is larger than a sensible
// store. Every command reaches its store through such an object, so that root does only what the
// directory's owner could do.

#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "files.h"

namespace zelkm_tool {

// The options that all commands have.
struct SessionOptions {
    std::string dir = ".";
    std::optional<uint32_t> patch_level;  // of the software keymaster, YYYYMM
    bool upgrade = false;                 // allow the library to upgrade the store's key
    bool quiet = false;                   // print only results and errors
    uint32_t wait = 5;                    // seconds, until another process leaves the directory
};

// Prints a line on standard output that confirms what was done. Nothing with --quiet.
inline void confirm(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cout << line << '\n';
    }
}

// Prints a line on standard error that is no failure. Nothing with --quiet.
inline void note(const SessionOptions& options, const std::string& line) {
    if (!options.quiet) {
        std::cerr << "zelkm: " << line << '\n';
    }
}

// No file of a store directory may be larger: 64 MiB, some hundred thousand objects.
inline constexpr uint64_t kMaxFileLen = 64 << 20;

// What a file is, in words: "a regular file", "a link", ...
const char* kindOf(const struct stat& status);

// Opens a directory. Throws Refused, also when the last part of the path is a link that belongs to
// another user: they could lead it elsewhere.
Descriptor openFolder(const std::string& path);

// Who besides root and its owner may change what has this status: "", "its group" or "everybody". A
// group of the owner's name without other members is the owner.
std::string otherWriters(const struct stat& status);

// Lets a process of root act as another user with that user's own groups, or none if they are not
// known. The destructor ends it. Does nothing in any other process, or for root. There may be one
// object at a time.
class OwnersRights {
  public:
    // Throws Refused.
    explicit OwnersRights(uid_t owner);
    ~OwnersRights();

    OwnersRights(const OwnersRights&) = delete;
    OwnersRights& operator=(const OwnersRights&) = delete;

  private:
    bool active_ = false;
    gid_t group_ = 0;  // of before
    std::vector<gid_t> groups_;
};

class Directory {
  public:
    // As long as the object lives, root acts as the directory's owner. Throws Refused when the
    // directory cannot be opened.
    explicit Directory(const std::string& path);

    const std::string& path() const { return path_; }
    int fd() const { return fd_.get(); }
    struct stat status() const;

    // The names of all entries, sorted.
    std::vector<std::string> names() const;

    // The status of the entry itself, not of the file that a link leads to. Nothing when there is
    // no such entry.
    std::optional<struct stat> look(const std::string& name) const;

    // Opens a regular file within the limit for reading. Nothing when there is no such entry.
    // Throws Refused with the name and the reason for anything else.
    std::optional<Descriptor> open(const std::string& name) const;

    // The content of a file that open() accepts.
    std::optional<std::string> read(const std::string& name) const;

    // Opens a directory inside this one. Throws Refused.
    Directory folder(const std::string& name) const;

  private:
    Directory(const std::string& path, Descriptor fd);

    std::string path_;
    Descriptor fd_;
    OwnersRights rights_;
};

// One process at a time in a store directory. The library keeps the whole store in memory, and each
// change replaces the file and its backup. Two writers would lose each other's objects, and could
// lose both files.
//
// An advisory lock on the directory itself. It leaves no file behind, and the system releases it
// when the process ends, in whatever way. Programs that use the library without this tool do not
// take it. Whoever may read the directory can take it, too, and keep this tool waiting.
class DirectoryLock {
  public:
    enum class Mode {
        kShared,     // for readers that do not use the library
        kExclusive,  // for everything else: even a read through the library may repair the store
    };

    // Locks the directory through its descriptor, which must outlive the lock. Waits as long as the
    // options say, and says so on standard error. Then throws Refused, which names the process that
    // holds the lock. On a file system without locks it prints a note and goes on.
    DirectoryLock(const Directory& directory, const SessionOptions& options, Mode mode);
    ~DirectoryLock();

    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

  private:
    const int directory_;
};

}  // namespace zelkm_tool
