// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The one place where exceptions end. The library throws none, but strings, vectors and plog do,
// for want of memory.

#pragma once

namespace zelkm {

// Runs an action; false when it threw. In a build without exceptions the C++ library ends the
// process instead.
template <typename Action>
[[nodiscard]] bool completes(Action action) {
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
