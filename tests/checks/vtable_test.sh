#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The virtual table of ZelKeymasterOperation in a library holds the type information, then the two
# destructors, and nothing else: vtable_test.sh NM READELF LIBRARY

set -euo pipefail
nm=$1 readelf=$2 library=$3

read -r start size _ < <("$nm" --dynamic --print-size "$library" | grep ' _ZTV21ZelKeymasterOperation$')
start=$((16#$start)) size=$((16#$size))

# Offset within the table, and symbol: the dynamic linker fills each entry.
entries() {
    local offset symbol
    while read -r offset _ _ _ symbol _; do
        offset=$((16#$offset - start))
        if ((offset >= 0 && offset < size)); then echo "$offset $symbol"; fi
    done < <("$readelf" --relocs --wide "$library" | grep '_Z.*ZelKeymasterOperation')
}

diff -u - <(entries | sort -n; echo "size $size") <<'END'
8 _ZTI21ZelKeymasterOperation
16 _ZN21ZelKeymasterOperationD1Ev
24 _ZN21ZelKeymasterOperationD0Ev
size 32
END
echo "the virtual table holds two destructors"
