#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the tests on an instrumented build and shows how much of each source of the library they
# executed. The sources with a count before each line, ##### for none, are left in
# build/coverage/gcov.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset coverage >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage

report=$PWD/build/coverage/gcov
rm -rf "$report"
mkdir -p "$report"
objects=$(find "$PWD/build/coverage/common" -name '*.gcda')
# The objects name their sources relative to the project's folder.
# shellcheck disable=SC2086  # one argument per file; the build folder has no blanks
gcov --relative-only --preserve-paths $objects >"$report/summary.txt" 2>/dev/null
mv ./*.gcov "$report"

awk -F "[':% ]" '
    /^File/ { file = $3 }
    /^Lines executed/ && file ~ /^(common|include)/ {
        lines = $NF; executed = lines * $3 / 100
        printf "%6.1f %%  of %4d  %s\n", $3, lines, file
        all += lines; all_executed += executed; file = ""
    }
    END { printf "%6.1f %%  of %4d  all\n", 100 * all_executed / all, all }
' "$report/summary.txt"
