// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command that tells what a crash left of a store, and repairs it.

#pragma once

#include "session.h"

namespace zelkm_tool {

// Diagnoses the directory of `options` and, when asked to, repairs it. Throws Refused when
// something is wrong and stays so.
void runDoctor(const SessionOptions& options, bool repair);

}  // namespace zelkm_tool
