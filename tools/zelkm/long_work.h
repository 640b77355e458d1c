// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Work that takes its time: shows how far it is, and can be interrupted between two steps.

#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "session_options.h"

namespace zelkm_tool {

// From now on SIGINT and SIGTERM only leave a note, as long as this object lives: one at a time.
class LongWork {
  public:
    // Progress appears on standard error when that is a terminal, unless the options say --quiet.
    LongWork(const SessionOptions& options, std::string what, size_t total);
    ~LongWork();

    LongWork(const LongWork&) = delete;
    LongWork& operator=(const LongWork&) = delete;

    // To be called when `done` steps are done. False when it is time to stop.
    bool goesOn(size_t done);

  private:
    using Clock = std::chrono::steady_clock;

    const std::string what_;
    const size_t total_;
    const bool visible_;
    bool shown_ = false;
    Clock::time_point last_;  // when progress was shown; long ago at first
    void (*before_[2])(int);
};

}  // namespace zelkm_tool
