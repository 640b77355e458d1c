#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Makes the Debian packages of a build, installs them, uses what they hold, and removes them:
# package_test.sh BUILD_FOLDER C++_COMPILER, with the build's flags in CXXFLAGS. For root, dpkg
# installs them into a folder of its own, and checks their dependencies against the machine's
# packages. For others they are only unpacked.

set -euo pipefail
build=$1 cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
if ! command -v dpkg-shlibdeps >/dev/null; then
    echo "skipped: no dpkg-shlibdeps"
    exit 77
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root admin=$scratch/root/var/lib/dpkg

cpack --config "$build/CPackConfig.cmake" -B "$scratch/made" >"$scratch/log" 2>&1 ||
    { cat "$scratch/log"; exit 1; }
packages=("$scratch"/made/*.deb)
test ${#packages[@]} -eq 4
names=$(for package in "${packages[@]}"; do dpkg-deb -f "$package" Package; done | sort | xargs)
test "$names" = "libzelkeymaster libzelkeymaster-dev zelkeymaster-doc zelkm"
depends=$(dpkg-deb -f "$scratch"/made/zelkm_*.deb Depends)
grep -q 'libc6 (>=' <<<"$depends"

in_root() {
    dpkg --root="$root" --force-script-chrootless --no-triggers --log="$scratch/dpkg.log" "$@" \
        >"$scratch/log" 2>&1 || { grep -v 'files list file' "$scratch/log"; exit 1; }
}

mkdir -p "$admin"/{info,updates,triggers}
if [[ $(id -u) -eq 0 ]]; then
    cp /var/lib/dpkg/status "$admin/status"
    in_root --install "${packages[@]}"
    how=installed
else
    for package in "${packages[@]}"; do dpkg-deb -x "$package" "$root"; done
    how="unpacked (installed only as root)"
fi

for name in $names; do test -s "$root/usr/share/doc/$name/copyright"; done

mkdir "$scratch/store"
export ZELKM_DIR=$scratch/store
"$root/usr/bin/zelkm" --quiet add --alias payment --creator wallet
test "$("$root/usr/bin/zelkm" aliases)" = wallet::payment
"$here/pages_test.py" --exact "$root/usr/bin" -- "$here/../sessions/list.md"
for page in "$root"/usr/share/man/man1/{zelkm,zelkeymaster_check}.1*; do
    [[ $(zcat -f "$page") == *".SH OPTIONS"* ]]
done
test -s "$root/usr/share/bash-completion/completions/zelkm"

PKG_CONFIG_PATH=$(dirname "$(find "$root" -name zelkeymaster.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046,SC2086  # words are wanted
"$cxx" ${CXXFLAGS:-} -std=c++17 "$here/consumer/engine.cpp" -o "$scratch/engine" $(pkg-config --cflags --libs zelkeymaster)
"$scratch/engine" 2>/dev/null

if [[ $(id -u) -eq 0 ]]; then
    # shellcheck disable=SC2086  # words are wanted
    in_root --purge $names
    test -z "$(find "$root/usr" ! -type d 2>/dev/null)"
fi
echo "the packages were $how, and what they hold works"
