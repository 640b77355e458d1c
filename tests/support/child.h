// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// For parts of a test that need a process of their own.

#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace test {

// Runs `action` in a child, and returns its result, or -1 when the child did not end by itself.
inline int runInChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(300);  // ends one that hangs
        ::_exit(action());
    }
    int status = 0;
    const bool ended = ::waitpid(child, &status, 0) == child && WIFEXITED(status);
    return ended ? WEXITSTATUS(status) : -1;
}

}  // namespace test
