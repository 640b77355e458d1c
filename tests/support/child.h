// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Child processes, for parts of a test that need a process of their own.

#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace test {

// Starts a child that runs `action` and exits with its result. The caller waits for it.
inline pid_t startChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action());
    }
    return child;
}

// Waits for a child and returns its exit status, or -1 when it did not end by itself.
inline int exitStatus(pid_t child) {
    int status = 0;
    const bool ended = ::waitpid(child, &status, 0) == child && WIFEXITED(status);
    return ended ? WEXITSTATUS(status) : -1;
}

inline int runInChild(const std::function<int()>& action) {
    return exitStatus(startChild(action));
}

}  // namespace test
