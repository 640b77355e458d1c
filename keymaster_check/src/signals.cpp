// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include <signal.h>
#include <time.h>

#include "keymaster_check/report.h"

namespace keymaster_check {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGABRT};

volatile sig_atomic_t g_caught = 0;
volatile time_t g_when = 0;

void onSignal(int signal) {
    const time_t now = ::time(nullptr);
    if (signal != SIGABRT && (g_caught == 0 || now < g_when + 2)) {
        g_when = g_caught == 0 ? now : g_when;  // timeout(1) sends each signal twice
        g_caught = signal;
        return;
    }
    removeDirectory();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

}  // namespace

StopSignals::StopSignals() {
    g_caught = 0;
    for (const int signal : kSignals) {
        ::signal(signal, onSignal);  // system calls then restart
    }
}

StopSignals::~StopSignals() {
    for (const int signal : kSignals) {
        ::signal(signal, SIG_DFL);
    }
}

int StopSignals::caught() {
    return g_caught;
}

}  // namespace keymaster_check
