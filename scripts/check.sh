#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The rules that a machine can hold: layout, scripts, the linter, the proportion of the tests, and
# the tests once more with the second compiler and a device's standard library, and with its flavour
# of libcrypto.
#
#   scripts/check.sh           the linter reads what differs from the branch main, or from its
#                              previous commit when there is no difference
#   scripts/check.sh --all     the linter reads every source
#   scripts/check.sh --quick   without the builds and the linter
#   scripts/check.sh --fix     sets the layout first

set -euo pipefail
cd "$(dirname "$0")/.."

# One version for everybody: another lays out and complains differently.
packages=(clang-format-19 clang-tidy-19 shellcheck
    clang libc++-dev libc++abi-dev googletest android-libboringssl-dev)
linted='^(common|soft_keymaster|keymaster_check|tools|examples)/.*\.cpp$'

scope=changed
quick=
fix=
while [[ $# -gt 0 ]]; do
    case $1 in
        --all) scope=all ;;
        --quick) quick=1 ;;
        --fix) fix=1 ;;
        *) sed -n '/^#   scripts/,/^$/s/^# *//p' "$0" >&2; exit 2 ;;
    esac
    shift
done

sources_to_lint() {
    local base
    if [[ $scope == all ]]; then
        git ls-files
        return
    fi
    base=$(git merge-base HEAD main 2>/dev/null || git rev-parse HEAD)
    if git diff --quiet "$base"; then base=$(git rev-parse --verify --quiet HEAD^ || echo HEAD); fi
    git diff --name-only --diff-filter=d "$base"
}

lint() {
    local files
    mapfile -t files < <(sources_to_lint | grep -E "$linted" | grep -v '^examples/device/zeld.cpp$' || true)
    echo "== linter, ${#files[@]} sources"
    [[ ${#files[@]} -gt 0 ]] || return 0
    printf '%s\0' "${files[@]}" |
        xargs -0 -n 2 -P "$(nproc)" clang-tidy-19 -p build/libcxx --quiet 2>/dev/null
}

scripts/setup.sh "${packages[@]}"

mapfile -t cxx < <(git ls-files '*.cpp' '*.h')
[[ -z $fix ]] || clang-format-19 -i "${cxx[@]}"
echo "== layout, ${#cxx[@]} files"
clang-format-19 --dry-run -Werror "${cxx[@]}"

mapfile -t shell < <(git ls-files '*.sh' .ci/run)
echo "== shell, ${#shell[@]} scripts"
shellcheck "${shell[@]}"

echo "== lines of code"
scripts/count-code.sh

if [[ -z $quick ]]; then
    for preset in libcxx boringssl; do
        echo "== $preset"
        cmake --preset "$preset" >/dev/null
        cmake --build --preset "$preset"
        ctest --preset "$preset"
    done
    lint
fi
echo "check: all rules hold"
