#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Sets the machine up, builds, and runs the tests: plain, and under the sanitizers.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
for preset in release asan; do
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset"
done
