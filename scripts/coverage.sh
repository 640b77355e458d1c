#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the tests on an instrumented build and prints line and branch coverage of the library's
# sources. With --missing, also what never ran.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage
python3 scripts/coverage_report.py build/coverage "$@"
