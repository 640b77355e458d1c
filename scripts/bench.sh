#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds the benchmarks, runs them and prints ratios, times and the machine. A whole run also
# rewrites docs/figures.md and the pictures in docs/pictures.
#
#   scripts/bench.sh [--quick | --again] [--only EXPRESSION]
#   scripts/bench.sh --compare [REV] [--only EXPRESSION]
#
#   --quick           a smoke run of less than a minute, whose figures mean nothing
#   --again           write the figures and pictures of the last whole run again
#   --compare [REV]   measure another revision, with its own benchmarks, beside this one; exit 1 and
#                     say so if this one is worse anywhere by more than the run's own noise. Without
#                     REV it is the one whose figures docs/figures.md has.

set -euo pipefail
cd "$(dirname "$0")/.."

arguments=()
compared=
while [[ $# -gt 0 ]]; do
    case $1 in
        --compare)
            compared=$(sed -n 's/.* Revision \([0-9a-f]*\).*/\1/p' docs/figures.md)
            if [[ -n ${2:-} && $2 != --* ]]; then
                compared=$2
                shift
            fi
            echo "bench: comparing with ${compared:?docs/figures.md names no revision}" >&2 ;;
        *) arguments+=("$1") ;;
    esac
    shift
done

build() {  # in the source tree $1
    (cd "$1" && cmake --preset bench && cmake --build --preset bench) >&2
}

scripts/setup.sh libbenchmark-dev libsqlcipher-dev python3-matplotlib scour

build .
if [[ -n $compared ]]; then
    worktree=build/compared
    revision=$(git rev-parse --verify "$compared^{commit}")
    if [[ -e $worktree/.git ]]; then
        git -C "$worktree" checkout --quiet --detach "$revision"
    else
        git worktree add --quiet --detach "$worktree" "$revision"
    fi
    build "$worktree"
    git diff --quiet "$revision" -- benchmarks ||
        echo "bench: the benchmarks differ as well; what they measure may not be the same" >&2
    exec python3 benchmarks/run.py --build build/bench/benchmarks \
        --compare "$worktree/build/bench/benchmarks" "${arguments[@]}"
fi
# Debian's own interpreter finds the plotting library.
exec /usr/bin/python3 benchmarks/run.py --build build/bench/benchmarks --docs docs "${arguments[@]}"
