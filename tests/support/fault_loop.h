// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Fault loops: the 1st, the 2nd, the 3rd … of something fails, until nothing is left to fail.

#pragma once

#include <gtest/gtest.h>

#include <string>

namespace test {

// Calls attempt(1), attempt(2) and so on. In attempt(n) the nth of `what` fails. An attempt returns
// whether that happened; the first in which nothing failed is the last. One that returns a larger
// number leaves out as many. Returns how many attempts there were.
template <typename Attempt>
int untilNothingFails(const std::string& what, Attempt attempt) {
    int attempts = 0;
    long step = 1;
    for (long nth = 1; step != 0 && !::testing::Test::HasFatalFailure(); nth += step) {
        SCOPED_TRACE(what + " " + std::to_string(nth));
        step = attempt(nth);
        ++attempts;
    }
    return attempts;
}

}  // namespace test
