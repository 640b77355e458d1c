// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Child processes: parts of a test that need a process of their own, and other programs.

#pragma once

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <vector>

namespace test {

// Starts a child that runs `action` and exits with its result. The caller waits for it.
inline pid_t startChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action());
    }
    return child;
}

// The descriptors that a program gets.
class Descriptors {
  public:
    Descriptors() { ::posix_spawn_file_actions_init(&actions_); }
    ~Descriptors() { ::posix_spawn_file_actions_destroy(&actions_); }
    Descriptors(const Descriptors&) = delete;
    Descriptors& operator=(const Descriptors&) = delete;

    Descriptors& open(int fd, const char* path, int flags) {
        ::posix_spawn_file_actions_addopen(&actions_, fd, path, flags, 0600);
        return *this;
    }
    Descriptors& copy(int ours, int fd) {
        ::posix_spawn_file_actions_adddup2(&actions_, ours, fd);
        return *this;
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_;
};

// Starts a program, which is searched for as in a shell. A fork would first copy the tables of all
// of this process's memory, which under the address sanitizer takes longer than the program.
inline pid_t startProgram(std::vector<std::string> args, const Descriptors& descriptors = {}) {
    std::vector<char*> argv;
    for (std::string& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    ::posix_spawnp(&child, argv[0], descriptors.get(), nullptr, argv.data(), ::environ);
    return child;
}

// Waits for a child and returns its exit status, or -1 when it did not end by itself. One that
// hangs is killed.
inline int exitStatus(pid_t child) {
    constexpr int kFiveMinutes = 300000;
    pollfd ends = {int(::syscall(SYS_pidfd_open, child, 0)), POLLIN, 0};
    if (ends.fd >= 0) {
        if (::poll(&ends, 1, kFiveMinutes) == 0) {
            ::kill(child, SIGKILL);
        }
        ::close(ends.fd);
    }
    int status = 0;
    const bool ended = ::waitpid(child, &status, 0) == child && WIFEXITED(status);
    return ended ? WEXITSTATUS(status) : -1;
}

inline int runInChild(const std::function<int()>& action) {
    return exitStatus(startChild(action));
}

}  // namespace test
