#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds the benchmarks, runs them and prints ratios, times and the machine. A whole run also
# rewrites docs/figures.md and the pictures in docs/pictures.
#
#   scripts/bench.sh [--quick] [--only EXPRESSION]
#   scripts/bench.sh --compare REV [--only EXPRESSION]
#
#   --quick         a smoke run of less than a minute, whose figures mean nothing
#   --compare REV   measure another revision, with its own benchmarks, beside this one; exit 1 and
#                   say so if this one is worse anywhere by more than the run's own noise

set -euo pipefail
cd "$(dirname "$0")/.."

arguments=()
compared=
while [[ $# -gt 0 ]]; do
    case $1 in
        --compare) compared=${2:?--compare needs a revision}; shift ;;
        *) arguments+=("$1") ;;
    esac
    shift
done

build() {  # in the source tree $1
    (cd "$1" && cmake --preset bench && cmake --build --preset bench) >&2
}

scripts/setup.sh libbenchmark-dev libsqlcipher-dev python3-matplotlib

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
