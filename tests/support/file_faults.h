// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A recorder of the library's file calls, which can let them fail or answer them itself.

#pragma once

#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "file_calls.h"
#include "temp_dir.h"

namespace test {

struct FileCall {
    // "open f.tmp", "lseek end", "lseek set", "read 3", "write 3", "close", "rename f f.bak",
    // "unlink f", "flush file" or "flush directory".
    std::string text;
    std::string path = {};  // of the file; empty for the working directory
    std::string to = {};    // the new name in a rename
    Bytes data = {};        // the bytes of a write
    bool creates = false;   // an open that makes or empties the file
    long result = 0;        // what the library got as an answer

    // The first word of the text.
    std::string kind() const { return text.substr(0, text.find(' ')); }
};

// What becomes of a call. A short read leaves out one byte, a short write half of them. A call that
// fails is not made, except for close.
enum class Fate { kMade, kShort, kFails };

// While an object of this class lives, it records the file calls. A flush is recorded and not made.
class FileFaults {
  public:
    FileFaults() : real_(zelkm::g_file_calls) {
        current_ = this;
        zelkm::FileCalls& calls = zelkm::g_file_calls;
        calls.open = [](const char* path, int flags, mode_t mode) {
            FileCall call = {"open " + std::string(path), path};
            call.creates = (flags & O_CREAT) != 0;
            const int fd =
                answered<int>(call, [&](Fate) { return current_->real_.open(path, flags, mode); });
            if (fd >= 0) {
                current_->paths_[fd] = path;
            }
            return fd;
        };
        calls.lseek = [](int fd, off_t offset, int whence) {
            return answered<off_t>(
                {whence == SEEK_END ? "lseek end" : "lseek set", current_->paths_[fd]},
                [&](Fate) { return current_->real_.lseek(fd, offset, whence); });
        };
        calls.read = [](int fd, void* data, size_t len) {
            return answered<ssize_t>(
                {"read " + std::to_string(len), current_->paths_[fd]}, [&](Fate fate) {
                    return current_->real_.read(fd, data, fate == Fate::kShort ? len - 1 : len);
                });
        };
        calls.write = [](int fd, const void* data, size_t len) {
            FileCall call = {"write " + std::to_string(len), current_->paths_[fd]};
            call.data.assign(static_cast<const uint8_t*>(data),
                             static_cast<const uint8_t*>(data) + len);
            return answered<ssize_t>(call, [&](Fate fate) {
                return current_->real_.write(fd, data, fate == Fate::kShort ? len / 2 : len);
            });
        };
        calls.close = [](int fd) {
            const int closed = current_->real_.close(fd);
            return answered<int>({"close", current_->paths_[fd]}, [&](Fate) { return closed; });
        };
        calls.rename = [](const char* from, const char* to) {
            return answered<int>({"rename " + std::string(from) + " " + to, from, to},
                                 [&](Fate) { return current_->real_.rename(from, to); });
        };
        calls.unlink = [](const char* path) {
            return answered<int>({"unlink " + std::string(path), path},
                                 [&](Fate) { return current_->real_.unlink(path); });
        };
        calls.flush = [](int fd) {
            const bool directory = fd == zelkm::kWorkingDirectory;
            answered<int>({directory ? "flush directory" : "flush file",
                           directory ? "" : current_->paths_[fd]},
                          [](Fate) { return 0; });
        };
    }
    ~FileFaults() { zelkm::g_file_calls = real_; }
    FileFaults(const FileFaults&) = delete;
    FileFaults& operator=(const FileFaults&) = delete;

    // Calls whose text is `call` are not made: they return `result` and set errno, unless `error`
    // is 0. With 0xFFFFFFFF of "lseek end", failing_memory.cpp refuses the memory for any file.
    void answer(const std::string& call, long result, int error) {
        answers_[call] = {result, error};
    }
    void fail(const std::string& call, int error) { answer(call, -1, error); }

    const std::vector<FileCall>& calls() const { return calls_; }
    std::vector<std::string> trace() const {
        std::vector<std::string> texts;
        for (const FileCall& call : calls_) {
            texts.push_back(call.text);
        }
        return texts;
    }

    // Decides about each call before it is made. Sets errno for one that fails.
    std::function<Fate(const FileCall&)> before_each = [](const FileCall&) { return Fate::kMade; };

  private:
    template <typename Result, typename Real>
    static Result answered(const FileCall& call, Real real) {
        current_->calls_.push_back(call);
        long& result = current_->calls_.back().result;
        const auto found = current_->answers_.find(call.text);
        const Fate fate = current_->before_each(call);
        if (fate == Fate::kFails) {
            result = -1;
        } else if (found == current_->answers_.end()) {
            result = real(fate);
        } else {
            result = found->second.first;
            errno = found->second.second != 0 ? found->second.second : errno;
        }
        return static_cast<Result>(result);
    }

    inline static FileFaults* current_ = nullptr;
    const zelkm::FileCalls real_;
    std::map<std::string, std::pair<long, int>> answers_;
    std::map<int, std::string> paths_;  // of open files
    std::vector<FileCall> calls_;
};

}  // namespace test
