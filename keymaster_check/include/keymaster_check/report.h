// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Prints findings, for people and for programs.

#pragma once

#include <string>
#include <vector>

#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

// "holds", "broken", "not offered" or "not tried".
const char* verdictName(Verdict verdict);

// True when nothing is broken.
bool allHolds(const std::vector<Finding>& findings);

// What the keymaster says about itself, e.g. "SoftKeymaster, libzelkeymaster, security level 0".
std::string describe(android::hardware::keymaster::V4_0::support::Keymaster& keymaster);

// One line for each requirement, three more lines for a broken one, and a summary.
std::string inText(const std::vector<Finding>& findings);

// One JSON object:
// {"keymaster": "...", "holds": n, "broken": n, "not_offered": n, "not_tried": n, "findings":
// [{"id": "...", "verdict": "...", "sent": "...", "answered": "...", "consequence": "..."}, ...]}
// All strings are ASCII. Any other byte appears as \u00NN.
std::string inJson(const std::string& keymaster, const std::vector<Finding>& findings);

}  // namespace keymaster_check
