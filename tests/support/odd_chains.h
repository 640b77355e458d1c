// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Chains at the edges of what libraries for certificates take. Only OpenSSL can make all of them.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "certificates.h"

namespace test {

// Each with its name. All differ from a good chain in one respect.
std::vector<std::pair<std::string, Chain>> oddChains();

}  // namespace test
