#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs each fuzz target for the given number of seconds, two at a time: fuzz.sh SECONDS [TARGET...]
# What they find is written to build/fuzz/findings; the corpora grow in build/fuzz/corpus.

set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:?usage: fuzz.sh SECONDS [TARGET...]}
shift
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
    for dictionary in fuzz/dictionaries/*.dict; do targets+=("$(basename "$dictionary" .dict)"); done
fi

scripts/setup.sh clang libclang-rt-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzz/all

run() {
    local name=$1 log=build/fuzz/$1.log
    mkdir -p "build/fuzz/corpus/$name" build/fuzz/findings
    if ! "build/fuzz/fuzz/${name}_fuzz" "build/fuzz/corpus/$name" "build/fuzz/fuzz/seeds/$name" \
        -dict="fuzz/dictionaries/$name.dict" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=4096 \
        -artifact_prefix="build/fuzz/findings/$name-" -print_final_stats=1 >"$log" 2>&1; then
        echo "$name: FAILED, see $log"
        tail -n 30 "$log"
        return 1
    fi
    echo "$name: $(sed -n 's/^stat::number_of_executed_units: //p' "$log") executions," \
        "$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1)"
}

failed=0
while [[ ${#targets[@]} -gt 0 ]]; do
    pids=()
    for name in "${targets[@]:0:2}"; do
        run "$name" &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do wait "$pid" || failed=1; done
    targets=("${targets[@]:2}")
done
exit "$failed"
