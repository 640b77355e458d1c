// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Whole files as byte strings. See files.h.

#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"

namespace zelkm_tool {
namespace {

[[noreturn]] void refuse(const std::string& path) {
    throw Refused(path + ": " + std::strerror(errno));
}

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ > STDERR_FILENO) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    const int fd_;
};

std::string readAll(int fd, const std::string& path) {
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof(buffer));
        if (got == 0) {
            return content;
        }
        if (got > 0) {
            content.append(buffer, static_cast<size_t>(got));
        } else if (errno != EINTR) {
            refuse(path);
        }
    }
}

}  // namespace

std::optional<std::string> readFileIfThere(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        refuse(path);
    }
    return readAll(file.get(), path);
}

std::string readInput(const std::string& path) {
    if (path == "-") {
        return readAll(STDIN_FILENO, "standard input");
    }
    std::optional<std::string> content = readFileIfThere(path);
    if (!content) {
        throw Refused(path + ": no such file");
    }
    return *std::move(content);
}

void writeOutput(const std::string& path, const std::string& content, Access access) {
    const Descriptor file(path == "-"
                              ? STDOUT_FILENO
                              : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                                       access == Access::kOwnerOnly ? 0600 : 0666));
    if (file.get() < 0) {
        refuse(path);
    }
    for (size_t done = 0; done < content.size();) {
        const ssize_t put = ::write(file.get(), content.data() + done, content.size() - done);
        if (put >= 0) {
            done += static_cast<size_t>(put);
        } else if (errno != EINTR) {
            refuse(path);
        }
    }
}

}  // namespace zelkm_tool
