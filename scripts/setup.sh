#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs the Debian packages that building, testing and the demo need, and those named, as far as
# they are missing: setup.sh [PACKAGE...]
# Silent when nothing is. Needs root, or sudo. Debian 12 or later.

set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config  # build
    clang libclang-rt-dev                         # second compiler
    libssl-dev android-liblog-dev libplog-dev     # the library
    android-libboringssl-dev                      # the same with a device's libcrypto
    libcli11-dev nlohmann-json3-dev               # the tool
    libgtest-dev python3                          # the tests and their reports
    file                                          # the Debian packages
    aidl checkpolicy m4                           # the example for a device
    openssl xxd                                   # the demo
    "$@"
)

is_installed() {
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

is_offered() {
    apt-cache show --no-all-versions "$1" >/dev/null 2>&1
}

as_root() {
    if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

apt() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 "$@" </dev/null
}

# Debian 12 has no libplog-dev: offers the one of Debian 13, from the mirror that this machine uses
# already, and nothing else of Debian 13.
offer_plog_from_next_suite() {
    local codename next=trixie mirror keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
    if [[ $codename != bookworm ]]; then
        echo "setup: no libplog-dev in the package sources of this machine" >&2
        exit 1
    fi
    if [[ ! -e $keyring ]]; then
        echo "setup: no $keyring, which tells Debian's own packages from others" >&2
        exit 1
    fi
    mirror=$(apt-get indextargets --format '$(REPO_URI)' \
        'Created-By: Packages' 'Origin: Debian' 'Component: main' "Codename: $codename" | head -n 1)
    if [[ -z $mirror ]]; then
        echo "setup: this machine has no package source for Debian $codename" >&2
        exit 1
    fi

    as_root tee /etc/apt/preferences.d/zelkeymaster-plog >/dev/null <<END
# libplog-dev alone may come from $next.
Package: libplog-dev
Pin: release n=$next
Pin-Priority: 500

Package: *
Pin: release n=$next
Pin-Priority: -1
END
    as_root tee /etc/apt/sources.list.d/zelkeymaster-plog.sources >/dev/null <<END
Types: deb
URIs: $mirror
Suites: $next
Components: main
Signed-By: $keyring
END
}

missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

echo "setup: installing ${missing[*]}"
# A third party's source that does not answer is no reason to stop: what counts is the installation.
apt update || echo "setup: not all package lists could be updated" >&2
if [[ " ${missing[*]} " == *" libplog-dev "* ]] && ! is_offered libplog-dev; then
    offer_plog_from_next_suite
    apt update || echo "setup: not all package lists could be updated" >&2
fi
apt install -y --no-install-recommends "${missing[@]}" >/dev/null
