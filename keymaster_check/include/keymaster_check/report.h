// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What programs that check a keymaster print, and how they end.

#pragma once

#include <string>
#include <vector>

#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

// "holds", "broken", "not offered", "not tried" or "left out".
const char* verdictName(Verdict verdict);

// The exit status: 1 when something is broken, else 3 when something was not tried, else 0.
int exitStatus(const std::vector<Finding>& findings);

// What the keymaster says about itself, e.g. "SoftKeymaster, libzelkeymaster, security level 0".
std::string describe(Handle& keymaster);

// One line, and three more when the requirement is broken.
std::string inText(const Finding& finding);
// The last line: how many findings have which verdict.
std::string summary(const std::vector<Finding>& findings);

// One JSON object:
// {"keymaster": "...", "holds": n, "broken": n, "not_offered": n, "not_tried": n, "left_out": n,
// "findings": [{"id": "...", "verdict": "...", "sent": "...", "answered": "...",
// "consequence": "...", "note": "..."}, ...]}
// All strings are ASCII. Any other byte appears as \u00NN.
std::string inJson(const std::string& keymaster, const std::vector<Finding>& findings);

// While this object lives, SIGINT, SIGTERM and SIGHUP stop the check: it cleans up and returns. The
// next one, two seconds later, removes the check's directory and ends the process, should a call
// hang. So does SIGABRT. There may be one object at a time.
class StopSignals {
  public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The signal that came, or 0.
    static int caught();
};

}  // namespace keymaster_check
