// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "directory.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

[[noreturn]] void refuse(const std::string& path) {
    throw Refused(path + ": " + std::strerror(errno));
}

}  // namespace

void readPieces(int fd, const std::string& path,
                const std::function<void(std::string_view)>& take) {
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof(buffer));
        if (got == 0) {
            return;
        }
        if (got > 0) {
            take({buffer, static_cast<size_t>(got)});
        } else if (errno != EINTR) {
            refuse(path);
        }
    }
}

std::string readAll(int fd, const std::string& path) {
    std::string content;
    readPieces(fd, path, [&](std::string_view piece) {
        content += piece;
        if (content.size() > kMaxFileLen) {
            throw Refused(path + ": more than " + std::to_string(kMaxFileLen) +
                          " bytes are not read");
        }
    });
    return content;
}

Descriptor openInput(const std::string& path) {
    Descriptor file(path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0 && errno == ENOENT) {
        throw Refused(path + ": no such file");
    }
    if (file.get() < 0) {
        refuse(path);
    }
    return file;
}

std::string readInput(const std::string& path) {
    return readAll(openInput(path).get(), path == "-" ? "standard input" : path);
}

void writeAll(int fd, const std::string& content, const std::string& path) {
    for (size_t done = 0; done < content.size();) {
        const ssize_t put = ::write(fd, content.data() + done, content.size() - done);
        if (put >= 0) {
            done += static_cast<size_t>(put);
        } else if (errno != EINTR) {
            refuse(path);
        }
    }
}

void writeOutput(const std::string& path, const std::string& content, Access access) {
    const Descriptor file(path == "-"
                              ? STDOUT_FILENO
                              : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                                       access == Access::kOwnerOnly ? 0600 : 0666));
    if (file.get() < 0) {
        refuse(path);
    }
    writeAll(file.get(), content, path);
}

}  // namespace zelkm_tool
