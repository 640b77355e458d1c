#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The platform's build compiles the sources that CMake's does, with the same folders of the project
# to search for headers: android_bp_test.sh SOURCES INCLUDE_FOLDERS, as CMake has them (with
# semicolons between, sources relative to common/, folders absolute).

set -euo pipefail
sources=$1 folders=$2
cd "$(dirname "$0")/.."

lines() {
    tr ';' '\n' <<<"$1" | LC_ALL=C sort
}

# The strings in lists of this name.
listed() {
    tr '\n' ' ' <Android.bp | grep -oE "\<$1: \[[^]]*\]" | grep -oE '"[^"]*"' | tr -d '"' |
        LC_ALL=C sort
}

diff -u --label CMake --label Android.bp <(lines "$sources" | sed 's,^,common/,') <(listed srcs)
# On a device the platform's own headers take the place of the host's, and of those unpacked for
# another architecture.
diff -u --label CMake --label Android.bp \
    <(lines "$folders" | sed -n "s,^$PWD/,,p" | grep -vE '^(platform/host|build)/') \
    <(listed '[a-z_]*include_dirs')
test -f "$(sed -n 's/.*version_script: "\(.*\)".*/\1/p' Android.bp)"
echo "Android.bp and CMake agree"
