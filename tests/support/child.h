// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A part of a test that needs a process of its own.

#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace test {

struct Ended {
    pid_t pid;
    int status;  // of exit; -1 when the process did not end by itself
};

// Runs `action` in a child, which ends with its result, and waits.
inline Ended runInChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action());
    }
    int status = 0;
    const bool ended = ::waitpid(child, &status, 0) == child && WIFEXITED(status);
    return {child, ended ? WEXITSTATUS(status) : -1};
}

}  // namespace test
