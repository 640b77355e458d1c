// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "fresh_file.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "bytes.h"
#include "failure.h"

namespace zelkm_tool {
namespace {

void require(bool done, const std::string& path) {
    if (!done) {
        throw Refused(path + ": " + std::strerror(errno));
    }
}

// A name that nobody can foresee.
std::string besides(const std::string& name) {
    std::string random(8, '\0');
    require(RAND_bytes(reinterpret_cast<unsigned char*>(random.data()), 8) == 1, name);
    return name + "." + hex(random);
}

std::optional<struct stat> look(const Descriptor& folder, const std::string& name) {
    struct stat status = {};
    const bool found = ::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    return found ? std::optional(status) : std::nullopt;
}

int renameIn(const Descriptor& folder, const std::string& from, const std::string& to) {
    return ::renameat(folder.get(), from.c_str(), folder.get(), to.c_str());
}

// Fails when the new name is taken, on file systems that can tell.
int renameToFreeName(const Descriptor& folder, const std::string& from, const std::string& to) {
    const int result =
        ::renameat2(folder.get(), from.c_str(), folder.get(), to.c_str(), RENAME_NOREPLACE);
    return result != 0 && errno == EINVAL ? renameIn(folder, from, to) : result;
}

}  // namespace

FreshFiles::~FreshFiles() {
    for (const File& file : files_) {
        if (!file.temporary.empty()) {
            ::unlinkat(file.folder.get(), file.temporary.c_str(), 0);
        }
    }
}

void FreshFiles::add(const std::string& path, Access access, Existing existing) {
    if (path == "-") {
        files_.push_back({path, "", existing, Descriptor(-1), Descriptor(STDOUT_FILENO), "", ""});
        return;
    }
    const std::filesystem::path whole = path;
    const Descriptor folder(::open(whole.has_parent_path() ? whole.parent_path().c_str() : ".",
                                   O_PATH | O_DIRECTORY | O_CLOEXEC));
    require(folder.get() >= 0, path);
    addIn(folder, whole.filename().string(), path, access, existing);
}

void FreshFiles::addIn(const Descriptor& folder, const std::string& name, const std::string& path,
                       Access access, Existing existing) {
    if (const auto status = look(folder, name.empty() ? "." : name)) {
        if (!S_ISREG(status->st_mode)) {
            throw Refused(path + ": exists and is not a regular file; nothing was written");
        }
        if (existing == Existing::kRefuse) {
            throw Refused(path + " already holds a key: use it with --key, or move it away");
        }
    }
    const std::string temporary = besides(name);
    Descriptor own_folder(::fcntl(folder.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    require(own_folder.get() >= 0, path);
    // In the list before it is made, so that the destructor removes it in any case.
    files_.push_back({path, name, existing, std::move(own_folder), Descriptor(-1), temporary, ""});
    files_.back().file = Descriptor(::openat(folder.get(), temporary.c_str(),
                                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                             access == Access::kOwnerOnly ? 0600 : 0666));
    require(files_.back().file.get() >= 0, path);
}

void FreshFiles::commit(const std::vector<std::string>& contents) {
    auto content = contents.begin();
    for (const File& file : files_) {
        if (!file.temporary.empty()) {
            writeAll(file.file.get(), *content, file.path);
            require(::fsync(file.file.get()) == 0, file.path);
        }
        ++content;
    }
    try {
        content = contents.begin();
        for (File& file : files_) {
            place(&file);
        }
        for (const File& file : files_) {
            if (file.name.empty()) {
                writeAll(file.file.get(), *content, "standard output");
            }
            ++content;
        }
    } catch (...) {
        for (File& file : files_) {
            takeBack(&file);
        }
        throw;
    }
    for (const File& file : files_) {
        if (!file.aside.empty()) {
            ::unlinkat(file.folder.get(), file.aside.c_str(), 0);
        }
    }
}

void FreshFiles::place(File* file) {
    if (file->temporary.empty()) {
        return;
    }
    if (file->existing == Existing::kReplace && look(file->folder, file->name)) {
        file->aside = besides(file->name);
        if (renameToFreeName(file->folder, file->name, file->aside) != 0) {
            file->aside.clear();
            require(false, file->path);
        }
    }
    require(renameToFreeName(file->folder, file->temporary, file->name) == 0, file->path);
    file->temporary.clear();
    file->placed = true;
    struct stat own = {};
    const auto placed = look(file->folder, file->name);
    if (::fstat(file->file.get(), &own) != 0 || !placed || placed->st_ino != own.st_ino ||
        placed->st_dev != own.st_dev) {
        throw Refused(file->path + ": another program has replaced it");
    }
}

void FreshFiles::takeBack(File* file) {
    if (file->placed) {
        ::unlinkat(file->folder.get(), file->name.c_str(), 0);
    }
    if (!file->aside.empty()) {
        renameIn(file->folder, file->aside, file->name);
    }
}

}  // namespace zelkm_tool
