// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The one place where exceptions end. The library throws none itself, but strings, vectors and plog
// throw when there is no memory.

#pragma once

namespace zelkm {

// Runs an action. False when the action threw. In a build without exceptions the C++ library ends
// the process instead.
template <typename Action>
[[nodiscard]] bool runNoThrow(Action action) {
#ifdef __cpp_exceptions
    try {
        action();
    } catch (...) {
        return false;
    }
#else
    action();
#endif
    return true;
}

}  // namespace zelkm
