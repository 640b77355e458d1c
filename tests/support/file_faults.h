// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Records the library's file calls and answers some of them in the system's place.

#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "file_calls.h"

namespace test {

// While one lives, file calls are recorded as "open f.tmp", "lseek end", "lseek set", "read 3",
// "write 3", "close", "rename f f.bak", "unlink f", "flush file" and "flush directory". Flushes do
// nothing.
class FileFaults {
  public:
    FileFaults() : real_(zelkm::g_file_calls) {
        current_ = this;
        zelkm::FileCalls& calls = zelkm::g_file_calls;
        calls.open = [](const char* path, int flags, mode_t mode) {
            return answered<int>("open " + std::string(path),
                                 [&] { return current_->real_.open(path, flags, mode); });
        };
        calls.lseek = [](int fd, off_t offset, int whence) {
            return answered<off_t>(whence == SEEK_END ? "lseek end" : "lseek set",
                                   [&] { return current_->real_.lseek(fd, offset, whence); });
        };
        calls.read = [](int fd, void* data, size_t len) {
            return answered<ssize_t>("read " + std::to_string(len),
                                     [&] { return current_->real_.read(fd, data, len); });
        };
        calls.write = [](int fd, const void* data, size_t len) {
            return answered<ssize_t>("write " + std::to_string(len),
                                     [&] { return current_->real_.write(fd, data, len); });
        };
        calls.close = [](int fd) {
            return answered<int>("close", [&] { return current_->real_.close(fd); });
        };
        calls.rename = [](const char* from, const char* to) {
            return answered<int>("rename " + std::string(from) + " " + to,
                                 [&] { return current_->real_.rename(from, to); });
        };
        calls.unlink = [](const char* path) {
            return answered<int>("unlink " + std::string(path),
                                 [&] { return current_->real_.unlink(path); });
        };
        calls.flush = [](int fd) {
            const bool directory = fd == zelkm::kWorkingDirectory;
            current_->record(directory ? "flush directory" : "flush file");
        };
    }
    ~FileFaults() { zelkm::g_file_calls = real_; }
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    // Calls that are recorded as `call` are not made: they answer `result` and set errno, unless to
    // 0.
    void answer(const std::string& call, long result, int error) {
        answers_[call] = {result, error};
    }
    void fail(const std::string& call, int error) { answer(call, -1, error); }

    const std::vector<std::string>& trace() const { return trace_; }

    std::function<void()> before_each = [] {};  // called before each call is made

  private:
    void record(const std::string& call) {
        before_each();
        trace_.push_back(call);
    }
    template <typename Result, typename Real>
    static Result answered(const std::string& call, Real real) {
        current_->record(call);
        const auto found = current_->answers_.find(call);
        if (found == current_->answers_.end()) {
            return real();
        }
        if (found->second.second != 0) {
            errno = found->second.second;
        }
        return static_cast<Result>(found->second.first);
    }

    inline static FileFaults* current_ = nullptr;
    const zelkm::FileCalls real_;
    std::map<std::string, std::pair<long, int>> answers_;
    std::vector<std::string> trace_;
};

// While one lives, every file seems to have 4 GiB, which failing_memory.cpp refuses.
class FilesTooLarge {
  public:
    FilesTooLarge() { faults_.answer("lseek end", 0xFFFFFFFFL, 0); }

  private:
    FileFaults faults_;
};

}  // namespace test
