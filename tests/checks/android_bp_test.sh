#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# The platform's build compiles the same sources as CMake's, and searches the same folders of the
# project for headers: android_bp_test.sh [MODULE FOLDER SOURCES INCLUDE_FOLDERS]...
# The lists are as CMake has them (with semicolons between, sources relative to FOLDER, folders
# absolute).

set -euo pipefail
cd "$(dirname "$0")/../.."

lines() {
    tr ';' '\n' <<<"$1" | LC_ALL=C sort
}

# The text of the modules with these names (a pattern).
modules() {
    tr '\n' ' ' <Android.bp | sed 's/ } /&\n/g' | grep -E "name: \"($1)\""
}

# The strings in a module's lists of this name.
listed() {  # MODULE LIST
    modules "$1" | grep -oE "\<$2: \[[^]]*\]" | grep -oE '"[^"]*"' | tr -d '"' | LC_ALL=C sort
}

while (($# > 0)); do
    module=$1 folder=$2 sources=$3 folders=$4
    shift 4
    diff -u --label CMake --label "Android.bp: $module" \
        <(lines "$sources" | sed "s,^,$folder/,") <(listed "$module" srcs)
    # The public headers come with libzelkeymaster, and a module's own are found beside its sources.
    # On a device the platform's own headers take the place of the host's, and of those unpacked for
    # another architecture.
    diff -u --label CMake --label "Android.bp: $module" \
        <(lines "$folders" | sed -n "s,^$PWD/,,p" | grep -vE "^(platform/host|build|$folder/src)(/|$)" || true) \
        <(listed "$module|libzelkeymaster_headers" '[a-z_]*include_dirs')
done
test -f "$(sed -n 's/.*version_script: "\(.*\)".*/\1/p' Android.bp)"
echo "Android.bp and CMake agree"
