#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the examples, each in a fresh directory, and compares README.md with the one that it shows:
# examples_test.sh EMULATOR BUILD_FOLDER

set -euo pipefail
emulator=$1
build=$(cd "$2" && pwd)
root=$(cd "$(dirname "$0")/../.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The library leaves the key's buffer to the end of the process, which a leak checker would report.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0

expect() {  # LAST_LINE PROGRAM
    local output
    mkdir "$scratch/$2"
    # shellcheck disable=SC2086  # the emulator has arguments
    if ! output=$(cd "$scratch/$2" && ${emulator//;/ } "$build/$2" 2>log) || [[ ${output##*$'\n'} != "$1" ]]; then
        printf '%s: expected "%s", got "%s"\n' "$2" "$1" "$output" >&2
        cat "$scratch/$2/log" >&2
        exit 1
    fi
}
expect 'wallet::payment' store_example
expect 'status 0, the material came back' password_example
expect 'status 0, 3 certificates' attestation_example
expect '0 failures' service_example
expect '24 requirements: holds 15, broken 0, not offered 9, not tried 0, left out 0' vendor_keymaster_example

# README.md shows all of the program, from its first include on.
program=$(sed -n '/^#include/,$p' "$root/examples/store.cpp")
shown=$(awk '/^```cpp$/ { is_shown = 1; next } /^```$/ { is_shown = 0 } is_shown' "$root/README.md")
diff <(echo "$program") <(echo "$shown") || {
    echo "README.md shows another program than examples/store.cpp" >&2
    exit 1
}
echo "the examples run"
