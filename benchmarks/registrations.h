// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The groups of benchmarks.

#pragma once

namespace bench {

void registerEngineBenchmarks();
void registerObjectBenchmarks();

}  // namespace bench
