#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Plants random faults in the library's sources, one at a time, in a copy of the tree, and lists
# those that no test notices: mutate.sh NUMBER [--seed SEED] [--sources PATTERN] [--sanitizers]
# Some seconds each; a survivor is a test that is missing, or a fault that changes nothing.
# --sources 'soft_keymaster/src/*' (or keymaster_check/, tools/) plants them elsewhere.

set -euo pipefail
cd "$(dirname "$0")/.."
: "${1:?usage: mutate.sh NUMBER [--seed SEED] [--sources PATTERN] [--sanitizers]}"

scripts/setup.sh
tree=build/mutate/tree
# Files that have not changed keep their times, and what was built of them.
git ls-files -z --cached --others --exclude-standard | while read -rd '' file; do
    cmp -s "$file" "$tree/$file" || install -D "$file" "$tree/$file"
done
find "$tree" -type f -printf '%P\0' | while read -rd '' file; do
    [[ -e $file ]] || rm "$tree/$file"
done
for kind in "" -sanitizers; do
    cmake -S "$tree" -B build/mutate/build$kind -G Ninja -DCMAKE_BUILD_TYPE=Debug \
        -DCMAKE_CXX_FLAGS_DEBUG=-O1 -DZELKM_SANITIZE=${kind:+address,undefined} >/dev/null
done
exec python3 scripts/mutate.py "$tree" build/mutate/build "$@"
