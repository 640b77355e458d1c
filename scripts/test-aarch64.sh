#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds for AArch64 and runs all tests under qemu-user; lets the two architectures read each
# other's files; prints the library's size. Installs the cross compiler and the emulator, and
# unpacks Debian's arm64 packages into build/aarch64-root: the host's own packages and its
# architectures stay as they are. Debian 12 or later.

set -euo pipefail
cd "$(dirname "$0")/.."

target_packages=(libc6-dev libstdc++6 libssl-dev android-liblog-dev libplog-dev libgtest-dev
    libcli11-dev nlohmann-json3-dev)
root=$PWD/build/aarch64-root

# A second apt, with the machine's package sources and a state of its own in which nothing is
# installed: so it resolves and downloads everything that the packages need.
unpack_target_packages() {
    local packages=${target_packages[*]} apt=$PWD/build/aarch64-apt package
    if [[ $(cat "$root/packages" 2>/dev/null) == "$packages" ]]; then return; fi
    echo "test-aarch64: unpacking arm64 packages"
    rm -rf "$root" "$apt"
    mkdir -p "$root" "$apt/lists/partial" "$apt/cache/archives/partial"
    touch "$apt/status"
    cat >"$apt/apt.conf" <<END
APT::Architecture "arm64";
APT::Architectures { "arm64"; };
APT::Sandbox::User "$(id -un)";
Dir::State "$apt";
Dir::State::status "$apt/status";
Dir::Cache "$apt/cache";
END
    APT_CONFIG=$apt/apt.conf apt-get -qq update ||
        echo "test-aarch64: not all package lists could be updated" >&2
    APT_CONFIG=$apt/apt.conf apt-get -qq -y --no-install-recommends --download-only install \
        "${target_packages[@]}" >/dev/null
    for package in "$apt"/cache/archives/*.deb; do
        dpkg-deb -x "$package" "$root"
    done
    [[ -e $root/lib ]] || ln -s usr/lib "$root/lib"  # Debian 13 puts nothing there
    rm -rf "$apt"
    echo "$packages" >"$root/packages"
}

build() {  # PRESET [TARGET...]
    local preset=$1
    shift
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" ${1:+--target "$@"}
}

tool() {  # ARCHITECTURE ARGUMENTS...
    local program=(build/release/tools/zelkm)
    if [[ $1 == aarch64 ]]; then
        program=(qemu-aarch64 -L "$root" build/aarch64/tools/zelkm)
    fi
    if ! "${program[@]}" "${@:2}" 2>build/aarch64/exchange/log; then
        cat build/aarch64/exchange/log >&2
        return 1
    fi
}

# A store made by one architecture is read, changed and left in order by the other.
exchange() {  # WRITER READER
    local store=build/aarch64/exchange/$1
    rm -rf build/aarch64/exchange
    mkdir -p "$store"
    tool "$1" --dir "$store" add --alias payment --creator wallet --accessor '[1..9]' >/dev/null
    tool "$1" --dir "$store" add --alias door --creator home --admin 1000,1001 >/dev/null
    cp -r "$store" "$store.written"
    tool "$1" --dir "$store" list --json >"$store.rows"
    tool "$2" --dir "$store" list --json | diff "$store.rows" -
    diff -r "$store.written" "$store"  # reading changes no byte

    tool "$2" --dir "$store" remove --where ALIAS=door >/dev/null
    cmp "$store.written/secure_objects.db" "$store/secure_objects.db.bak"
    [[ $(tool "$1" --dir "$store" aliases) == wallet::payment ]]
    tool "$2" --patch-level 203012 --upgrade --dir "$store" aliases >/dev/null
    [[ $(tool "$1" --patch-level 203012 --dir "$store" aliases) == wallet::payment ]]
    rm -r build/aarch64/exchange
    echo "$2 reads what $1 wrote"
}

scripts/setup.sh g++-aarch64-linux-gnu qemu-user
unpack_target_packages

echo "== aarch64"
build aarch64
ctest --preset aarch64

if [[ $(uname -m) == x86_64 ]]; then
    build release zelkm
    exchange x86_64 aarch64
    exchange aarch64 x86_64
fi

stripped=build/aarch64/libzelkeymaster.stripped.so
aarch64-linux-gnu-strip -o "$stripped" build/aarch64/common/libzelkeymaster.so
echo "libzelkeymaster.so for AArch64, stripped: $(stat -c %s "$stripped") bytes"
