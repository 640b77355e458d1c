// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What a test and a program with failing_calls.cpp in it tell each other. The program stops where
// it opens its first directory. From there it goes on in a child of its own for each order.

#pragma once

namespace test {

constexpr int kOrders = 100;  // the program's descriptors
constexpr int kReports = 101;

struct Order {
    long nth = 0;        // this file call or allocation fails; with 0 none does
    bool kills = false;  // instead, this file call is not made, nor anything after it: a power cut
};

struct Report {
    int status;  // of the child, as waitpid() has it
    long count;  // of its file calls and allocations
};

}  // namespace test
