// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "fresh_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "files.h"

namespace zelkm_tool {
namespace {

[[noreturn]] void refuse(const std::string& path) {
    throw Refused(path + ": " + std::strerror(errno));
}

}  // namespace

FreshFile::FreshFile(const std::string& path) : path_(path) {
    if (path_ == "-") {
        return;
    }
    struct stat status = {};
    if (::lstat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Refused(path_ + ": is there and no ordinary file; nothing was written");
    }
    std::string name = path_ + ".XXXXXX";
    const int fd = ::mkstemp(name.data());  // mode 0600
    if (fd < 0) {
        refuse(path_);
    }
    ::close(fd);
    temporary_ = name;
}

FreshFile::~FreshFile() {
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

void FreshFile::write(const std::string& content) {
    if (temporary_.empty()) {
        writeOutput("-", content, Access::kOwnerOnly);
        return;
    }
    writeOutput(temporary_, content, Access::kOwnerOnly);
    const int fd = ::open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
    const bool flushed = fd >= 0 && ::fsync(fd) == 0;
    if (!flushed) {
        refuse(path_);
    }
    ::close(fd);
}

void FreshFile::commit() {
    if (temporary_.empty()) {
        return;
    }
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) {
        refuse(path_);
    }
    temporary_.clear();
}

}  // namespace zelkm_tool
