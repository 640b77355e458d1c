#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds the benchmarks, runs them and prints ratios, times and the machine. A whole run also
# rewrites the tables of docs/performance.md.
#
#   scripts/bench.sh [--quick] [--before REV] [further arguments of benchmarks/run.py]
#
#   --quick        a smoke run of less than a minute, whose figures mean nothing
#   --before REV   measure another revision, with its own benchmarks, beside this one in the same run

set -euo pipefail
cd "$(dirname "$0")/.."

arguments=()
before=
while [[ $# -gt 0 ]]; do
    case $1 in
        --before) before=${2:?--before needs a revision}; shift ;;
        *) arguments+=("$1") ;;
    esac
    shift
done

build() {  # in the source tree $1
    (cd "$1" && cmake --preset bench && cmake --build --preset bench) >&2
}

scripts/setup.sh libbenchmark-dev libsqlcipher-dev

build .
if [[ -n $before ]]; then
    worktree=build/before
    revision=$(git rev-parse --verify "$before^{commit}")
    if [[ -e $worktree/.git ]]; then
        git -C "$worktree" checkout --quiet --detach "$revision"
    else
        git worktree add --quiet --detach "$worktree" "$revision"
    fi
    build "$worktree"
    arguments+=(--before "$worktree/build/bench/benchmarks")
fi
exec python3 benchmarks/run.py --build build/bench/benchmarks --write docs/performance.md \
    "${arguments[@]}"
