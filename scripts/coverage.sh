#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the tests on an instrumented build, and prints which lines of the library they executed, and
# the share of lines and branches: coverage.sh [GCOVR-OPTION...]
# With --branches it lists the branches that were not taken. What only children of a test did that
# ended by _exit is not counted.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh gcovr
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage
# The library has no branches that only an exception takes.
gcovr --root . --filter common/ --filter include/ --exclude-throw-branches --print-summary \
    build/coverage/common "$@"
