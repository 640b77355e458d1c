// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "files.h"

#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "bytes.h"
#include "directory.h"

namespace zelkm_tool {
namespace {

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

void readPieces(int fd, const std::string& path,
                const std::function<void(std::string_view)>& take) {
    char buffer[65536];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof(buffer))) != 0;) {
        if (got > 0) {
            take({buffer, static_cast<size_t>(got)});
        } else {
            require(errno == EINTR, path);
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

void writeAll(int fd, const std::string& content, const std::string& path) {
    for (size_t done = 0; done < content.size();) {
        const ssize_t put = ::write(fd, content.data() + done, content.size() - done);
        require(put >= 0 || errno == EINTR, path);
        done += static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
}

Descriptor openInput(const std::string& path) {
    Descriptor file(path == "-" ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0 && errno == ENOENT) {
        throw Refused(path + ": no such file");
    }
    require(file.get() >= 0, path);
    return file;
}

std::string readInput(const std::string& path) {
    return readAll(openInput(path).get(), path == "-" ? "standard input" : path);
}

FreshFiles::~FreshFiles() {
    for (const File& file : files_) {
        if (!file.temporary.empty()) {
            ::unlinkat(file.folder.get(), file.temporary.c_str(), 0);
        }
    }
}

std::string& FreshFiles::add(const std::string& path, Access access) {
    if (path == "-") {
        files_.push_back({path, "", access, Descriptor(-1), Descriptor(STDOUT_FILENO)});
        return files_.back().content;
    }
    const std::filesystem::path whole = path;
    const Descriptor folder(::open(whole.has_parent_path() ? whole.parent_path().c_str() : ".",
                                   O_PATH | O_DIRECTORY | O_CLOEXEC));
    require(folder.get() >= 0, path);
    return addIn(folder, whole.filename().string(), path, access);
}

std::string& FreshFiles::addIn(const Descriptor& folder, const std::string& name,
                               const std::string& path, Access access) {
    if (const auto status = look(folder, name.empty() ? "." : name)) {
        if (!S_ISREG(status->st_mode)) {
            throw Refused(path + ": exists and is not a regular file; nothing was written");
        }
        if (access == Access::kNewKey) {
            throw Refused(path + " already holds a key: use it with --key, or move it away");
        }
    }
    const std::string temporary = besides(name);
    Descriptor own_folder(::fcntl(folder.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    require(own_folder.get() >= 0, path);
    // In the list before it is made, so that the destructor removes it in any case.
    files_.push_back({path, name, access, std::move(own_folder), Descriptor(-1), temporary});
    File& file = files_.back();
    file.file = Descriptor(::openat(folder.get(), temporary.c_str(),
                                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                    access == Access::kEverybody ? 0666 : 0600));
    require(file.file.get() >= 0, path);
    return file.content;
}

void FreshFiles::commit() {
    for (const File& file : files_) {
        if (!file.temporary.empty()) {
            writeAll(file.file.get(), file.content, file.path);
            require(::fsync(file.file.get()) == 0, file.path);
        }
    }
    try {
        for (File& file : files_) {
            place(&file);
        }
        for (const File& file : files_) {
            if (file.name.empty()) {
                writeAll(file.file.get(), file.content, "standard output");
            }
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
    if (file->access != Access::kNewKey && look(file->folder, file->name)) {
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
