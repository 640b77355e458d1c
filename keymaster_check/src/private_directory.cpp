// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "private_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "file_names.h"
#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {
namespace {

// The present directory; for a signal handler, which cannot ask an object.
char g_path[PATH_MAX];
volatile int g_directory = -1;  // its descriptor

// Makes the directory where there is a place for it.
bool makeDirectory() {
    const char* const named = std::getenv("TMPDIR");
    for (const char* parent : {named, "/data/local/tmp", "/tmp"}) {
        char absolute[PATH_MAX];
        if (parent == nullptr || ::realpath(parent, absolute) == nullptr) {
            continue;
        }
        const int size =
            std::snprintf(g_path, sizeof(g_path), "%s/keymaster_check_XXXXXX", absolute);
        if (size < PATH_MAX && ::mkdtemp(g_path) != nullptr) {
            return true;
        }
    }
    return false;
}

int openDirectory(const char* path) {
    return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

// Calls only what a signal handler may call. The descriptor stays right whatever the working
// directory is.
void removeDirectory() {
    const int directory = g_directory;
    if (directory < 0) {
        return;
    }
    g_directory = -1;
    for (const char* name : zelkm::kErrorFiles) {
        static_cast<void>(::unlinkat(directory, name, 0));
    }
    for (const char* file : zelkm::kReplacedFiles) {
        for (const char* suffix : {"", zelkm::kTemporarySuffix, zelkm::kBackupSuffix}) {
            char name[64];
            char* const end = std::copy_n(file, std::strlen(file), name);
            std::copy_n(suffix, std::strlen(suffix) + 1, end);
            static_cast<void>(::unlinkat(directory, name, 0));
        }
    }
    ::close(directory);
    static_cast<void>(::rmdir(g_path));
}

PrivateDirectory::PrivateDirectory() {
    if (!makeDirectory()) {
        return;
    }
    g_directory = openDirectory(g_path);
    if (g_directory < 0) {
        static_cast<void>(::rmdir(g_path));
        return;
    }
    before_ = openDirectory(".");
    if (before_ < 0 || ::fchdir(g_directory) != 0) {
        ::close(before_);
        before_ = -1;
        removeDirectory();
    }
}

PrivateDirectory::~PrivateDirectory() {
    if (isThere()) {
        static_cast<void>(::fchdir(before_) == 0);
        ::close(before_);
        removeDirectory();
    }
}

std::string PrivateDirectory::read(const char* name) const {
    std::ifstream file(std::string(g_path) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

bool PrivateDirectory::write(const char* name, const std::string& content) const {
    std::ofstream file(std::string(g_path) + "/" + name, std::ios::binary);
    file << content << std::flush;
    return file.good();
}

}  // namespace keymaster_check
