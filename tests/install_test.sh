#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs a build and uses it from outside, through CMake and through pkg-config:
# install_test.sh BUILD_FOLDER C++_COMPILER, with the build's flags in CXXFLAGS

set -euo pipefail
build=$1 cxx=$2
consumer=$(cd "$(dirname "$0")/consumer" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
test -n "$(find "$prefix" -name libzelkeymaster.so)"

cmake -S "$consumer" -B "$scratch/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$scratch/build" >/dev/null
mkdir "$scratch/store"
(cd "$scratch/store" && ../build/consumer 2>/dev/null && ../build/engine_consumer 2>/dev/null)
test -s "$scratch/store/secure_objects.db"

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name zelkeymaster.pc)")
# shellcheck disable=SC2046,SC2086  # words are wanted
"$cxx" ${CXXFLAGS:-} -std=c++17 "$consumer/engine.cpp" -o "$scratch/engine" $(pkg-config --cflags --libs zelkeymaster)
"$scratch/engine" 2>/dev/null

# The installed tool finds the installed library.
if [[ -e $prefix/bin/zelkm ]]; then
    "$prefix/bin/zelkm" --dir "$scratch/store" aliases 2>/dev/null | grep -q '^wallet::payment$'
fi
echo "the installed package builds and runs"
