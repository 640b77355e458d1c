// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Chains that libraries for certificates may or may not take. Only OpenSSL can make all of them.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "certificates.h"

namespace test {

// Returns each chain with its name. All differ from a good chain in one respect.
std::vector<std::pair<std::string, Chain>> oddChains();

}  // namespace test
