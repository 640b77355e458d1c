// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Work of many steps. It shows its progress, and can be interrupted between two steps.

#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "session_options.h"

namespace zelkm_tool {

// While this object lives, SIGINT and SIGTERM only set a flag. There may be one object at a time.
class LongWork {
  public:
    // Shows progress on standard error if that is a terminal, and not with --quiet.
    LongWork(const SessionOptions& options, std::string what, size_t total);
    ~LongWork();

    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;

    // Call this when `done` steps are done. False when a signal asked to stop.
    bool goesOn(size_t done);

  private:
    using Clock = std::chrono::steady_clock;

    const std::string what_;
    const size_t total_;
    const bool visible_;
    bool shown_ = false;
    Clock::time_point last_;  // when progress was shown last; long ago at first
    void (*before_[2])(int);
};

}  // namespace zelkm_tool
