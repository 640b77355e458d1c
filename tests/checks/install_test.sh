#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs a build and uses it from outside, through CMake and through pkg-config:
# install_test.sh BUILD_FOLDER C++_COMPILER, with the build's flags in CXXFLAGS

set -euo pipefail
build=$1 cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
test -n "$(find "$prefix" -name libzelkeymaster.so)"

# What is installed is bound at its start. It names one folder, which is root's: that of liblog, which
# the loader does not search.
liblog=$(dirname "$(sed -n 's/^ZELKM_LIBLOG:FILEPATH=//p' "$build/CMakeCache.txt")")
[[ $(stat -c %u%a "$liblog") == 0755 ]]
release=$(grep -c '^CMAKE_BUILD_TYPE:STRING=Rel' "$build/CMakeCache.txt" || true)
while read -r file; do
    dynamic=$(readelf -dW "$file")
    grep -q 'FLAGS.*NOW' <<<"$dynamic"
    test "$(sed -n 's/.*R\(UN\)\?PATH.*\[\(.*\)\]/\2/p' <<<"$dynamic")" = "$liblog"
    [[ $release -eq 0 ]] || grep -q '__stack_chk_fail' <<<"$(nm -D "$file")"
done < <(find "$prefix" -type f -perm -1 -name 'zelk*' -o -name libzelkeymaster.so)

"$here/links_test.py" "$prefix/share/doc/zelkeymaster"

# One version everywhere.
version=$(sed -n 's/^#define ZELKEYMASTER_VERSION "\(.*\)"$/\1/p' "$prefix/include/zelkeymaster_operation.h")
test "$(grep -ao 'libzelkeymaster [0-9.]*' "$(find "$prefix" -name libzelkeymaster.so)" | sort -u)" = "libzelkeymaster $version"
grep -m 1 '^## ' "$here/../../CHANGELOG.md" | grep -q "^## $version (20..-..-..)"

# The examples, as they were installed, are a project outside, which knows the package only.
examples=$(find "$prefix" -type d -name examples)
cmake -S "$examples" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$scratch/build" -j 2 >/dev/null
"$here/examples_test.sh" "" "$scratch/build"
mkdir "$scratch/store"
(cd "$scratch/store" && ../build/store_example >/dev/null 2>&1)

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name zelkeymaster.pc)")
compile() {  # PROGRAM PACKAGE SOURCE...
    # shellcheck disable=SC2046,SC2086  # words are wanted
    "$cxx" ${CXXFLAGS:-} -std=c++17 "${@:3}" -o "$1" $(pkg-config --cflags --libs "$2")
}
compile "$scratch/engine" zelkeymaster "$here/consumer/engine.cpp"
"$scratch/engine" 2>/dev/null
compile "$scratch/vendor_check" keymaster_check "$examples"/vendor_keymaster*.cpp
compile "$scratch/store_program" soft_keymaster "$examples/store.cpp"
mkdir "$scratch/other_store"
(cd "$scratch/other_store" && ../store_program 2>/dev/null | grep -q '^wallet::payment$')

# The installed programs run by themselves.
if [[ -e $prefix/bin/zelkm ]]; then
    (cd "$scratch" && "$prefix/bin/zelkeymaster_check" --no-password >/dev/null 2>&1)
    for tool in zelkm zelkeymaster_check; do
        test "$("$prefix/bin/$tool" --version)" = "$tool $version"
    done
    "$prefix/bin/zelkm" --dir "$scratch/store" aliases 2>/dev/null | grep -q '^wallet::payment$'
fi
echo "the installed package builds and runs"
