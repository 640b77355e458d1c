#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Compares what a library exports with the list beside this script: exported_symbols_test.sh NM LIBRARY

set -euo pipefail

exported() {
    "$1" --dynamic --defined-only --demangle "$2" | cut -d' ' -f3- |
        sed -E -e 's/std::__(cxx11|1)::/std::/g' \
            -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
            -e 's/std::vector<std::string, std::allocator<std::string> >/std::vector<std::string>/g' \
            -e 's/\[abi:cxx11\]//g' -e 's/android::hardware:://g' -e 's/keymaster::V4_0:://g' |
        LC_ALL=C sort -u
}

diff -u "$(dirname "$0")/exported_symbols.txt" <(exported "$1" "$2")
echo "the exported symbols are those in the list"
