// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Findings for people and for programs.

#pragma once

#include <string>
#include <vector>

#include "keymaster_check/keymaster_check.h"

namespace keymaster_check {

// "holds", "broken", "not offered" or "not tried".
const char* verdictName(Verdict verdict);

// Whether all that is offered holds: nothing is broken.
bool allHolds(const std::vector<Finding>& findings);

// Which keymaster it says that it is, e.g. "SoftKeymaster, libzelkeymaster, security level 0".
std::string describe(android::hardware::keymaster::V4_0::support::Keymaster& keymaster);

// A line for each requirement, with three more for what is broken, and a summary.
std::string inText(const std::vector<Finding>& findings);

// {"keymaster": "...", "holds": n, "broken": n, "not_offered": n, "not_tried": n, "findings":
// [{"id": "...", "verdict": "...", "sent": "...", "answered": "...", "consequence": "..."}, ...]}
// A byte beyond ASCII appears as the character of its number.
std::string inJson(const std::string& keymaster, const std::vector<Finding>& findings);

}  // namespace keymaster_check
