// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads whole files, and writes output files that appear complete and together, or not at all.

#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <utility>

#include "failure.h"

namespace zelkm_tool {

// An open file, closed with its owner. The standard streams stay open.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ > STDERR_FILENO) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

// Throws Refused with the path and what errno says, unless it was done.
inline void require(bool done, const std::string& path) {
    if (!done) {
        throw Refused(path + ": " + std::strerror(errno));
    }
}

// Reads the rest of an open file piece by piece. `path` is for messages. Throws Refused.
void readPieces(int fd, const std::string& path, const std::function<void(std::string_view)>& take);

// Reads the rest of an open file. `path` is for messages. Throws Refused, also for more than
// kMaxFileLen bytes.
std::string readAll(int fd, const std::string& path);

// Writes all of `content`. Throws Refused.
void writeAll(int fd, const std::string& content, const std::string& path);

// Opens a file, or standard input for "-". Throws Refused.
Descriptor openInput(const std::string& path);

// The content of a file, or of standard input for "-". Throws Refused.
std::string readInput(const std::string& path);

// Who may read an output. A new key is the owner's only, and never replaces a file.
enum class Access { kEverybody, kOwnerOnly, kNewKey };

// The output files of a command. Each is written through the descriptor of the file that this
// object has made, so that nothing reaches a file that somebody else has put in its place.
class FreshFiles {
  public:
    FreshFiles() = default;
    // Leaves everything as it was, unless commit() was called.
    ~FreshFiles();

    FreshFiles(const FreshFiles&) = delete;
    FreshFiles& operator=(const FreshFiles&) = delete;

    // Makes a temporary file beside `path`; "-" is standard output. Returns the content to write,
    // which the caller fills before commit(). Throws Refused when that fails, or when `path` exists
    // and is no regular file; nothing is written through a link.
    std::string& add(const std::string& path, Access access);
    // The same for a name in an open folder; `path` is for messages.
    std::string& addIn(const Descriptor& folder, const std::string& name, const std::string& path,
                       Access access);

    // Writes the contents, and gives all files their names. When one step fails, every name is as
    // it was before, and Refused is thrown.
    void commit();

  private:
    struct File {
        std::string path;
        std::string name;  // empty for standard output
        Access access;
        Descriptor folder;
        Descriptor file;
        std::string temporary = "";  // its name, until it is placed
        std::string aside = "";      // what the file that was there is called meanwhile
        std::string content = "";
        bool placed = false;
    };

    static void place(File* file);
    static void takeBack(File* file);

    std::list<File> files_;
};

}  // namespace zelkm_tool
