// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "private_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace keymaster_check {
namespace {

// Makes a new directory and answers its path; empty when no place for one works.
std::string makeDirectory() {
    const char* const named = std::getenv("TMPDIR");
    for (const char* parent : {named, "/data/local/tmp", "/tmp"}) {
        if (parent == nullptr || *parent == '\0') {
            continue;
        }
        std::string path = std::string(parent) + "/keymaster_check_XXXXXX";
        if (::mkdtemp(path.data()) != nullptr) {
            return path;
        }
    }
    return "";
}

// Removes the files in the working directory. The library makes no subdirectories.
void removeFilesHere() {
    DIR* const here = ::opendir(".");
    if (here == nullptr) {
        return;
    }
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(here)) {
        names.push_back(entry->d_name);
    }
    ::closedir(here);
    for (const std::string& name : names) {
        static_cast<void>(::unlink(name.c_str()));
    }
}

}  // namespace

PrivateDirectory::PrivateDirectory() : path_(makeDirectory()) {
    if (path_.empty()) {
        return;
    }
    before_ = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (before_ >= 0 && ::chdir(path_.c_str()) != 0) {
        ::close(before_);
        before_ = -1;
    }
    if (before_ < 0) {
        ::rmdir(path_.c_str());
    }
}

PrivateDirectory::~PrivateDirectory() {
    if (!isThere()) {
        return;
    }
    removeFilesHere();
    static_cast<void>(::fchdir(before_) == 0);
    ::close(before_);
    ::rmdir(path_.c_str());
}

}  // namespace keymaster_check
