#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Prints the lines of code of each folder, without blank and comment lines, and how much of them is
# tests: tests/ and fuzz/ should be a quarter to a third.

set -euo pipefail
cd "$(dirname "$0")/.."

code='\.(cpp|h|sh|py|go)$'

count() {  # lines of the files named on standard input
    xargs -d '\n' -r cat | grep -cvE '^[[:space:]]*((//|#([^!]|$)).*)?$' || true
}

# Preprocessor lines are code, though they begin like a comment of a script.
count_files() {  # FOLDER
    local folder=$1 sources scripts
    sources=$(git ls-files "$folder" | { grep -E '\.(cpp|h|go)$' || true; } |
        xargs -d '\n' -r cat | grep -cvE '^[[:space:]]*(//.*)?$' || true)
    scripts=$(git ls-files "$folder" | { grep -E '\.(sh|py)$' || true; } | count)
    echo $((sources + scripts))
}

total=0 tests=0
for folder in $(git ls-files | grep -E "$code" | cut -d/ -f1 | LC_ALL=C sort -u); do
    lines=$(count_files "$folder")
    printf '%7d  %s\n' "$lines" "$folder"
    total=$((total + lines))
    case $folder in
        tests | fuzz) tests=$((tests + lines)) ;;
    esac
done
printf '%7d  in all; tests and fuzz targets are %d %%\n' "$total" $((100 * tests / total))
