// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "long_work.h"

#include <signal.h>
#include <unistd.h>

#include <utility>

namespace zelkm_tool {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};
constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr char kClearLine[] = "\r\x1b[K";

volatile sig_atomic_t interrupted = 0;

void takeNote(int /*signal*/) {
    interrupted = 1;
}

}  // namespace

LongWork::LongWork(const SessionOptions& options, std::string what, size_t total)
    : what_(std::move(what)),
      total_(total),
      visible_(!options.quiet && ::isatty(STDERR_FILENO) != 0) {
    interrupted = 0;
    for (size_t i = 0; i < 2; ++i) {
        before_[i] = ::signal(kSignals[i], takeNote);  // system calls then restart
    }
}

LongWork::~LongWork() {
    for (size_t i = 0; i < 2; ++i) {
        ::signal(kSignals[i], before_[i]);
    }
    if (shown_) {
        std::cerr << kClearLine << std::flush;
    }
}

bool LongWork::goesOn(size_t done) {
    const auto now = Clock::now();
    if (visible_ && now - last_ >= kInterval) {
        last_ = now;
        shown_ = true;
        std::cerr << kClearLine << what_ << ": " << done << " of " << total_ << std::flush;
    }
    return interrupted == 0;
}

}  // namespace zelkm_tool
