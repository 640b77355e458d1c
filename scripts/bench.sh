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

packages=(libbenchmark-dev libsqlcipher-dev python3)  # beyond what building needs

arguments=()
before=
while [[ $# -gt 0 ]]; do
    case $1 in
        --before) before=${2:?--before needs a revision}; shift ;;
        *) arguments+=("$1") ;;
    esac
    shift
done

is_installed() {
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

build() {  # in the source tree $1
    (cd "$1" && cmake --preset bench && cmake --build --preset bench) >&2
}

scripts/setup.sh
missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
if [[ ${#missing[@]} -gt 0 ]]; then
    echo "bench: installing ${missing[*]}"
    sudo=$([[ $(id -u) -eq 0 ]] || echo sudo)
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 \
        install -y --no-install-recommends "${missing[@]}" </dev/null >/dev/null
fi

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
