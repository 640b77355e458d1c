#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs the Debian packages that building and testing need, and those named, as far as they are
# missing: setup.sh [PACKAGE...]
# With --demo, only what building the tool and the demo need. Silent when nothing is missing. Needs
# root, or sudo. Debian 12 or later.

set -euo pipefail
umask 022  # whatever the caller's is: apt reads files here as another user

packages=(
    build-essential cmake ninja-build             # build
    libssl-dev android-liblog-dev libplog-dev     # the library
    libcli11-dev nlohmann-json3-dev               # the tool
    file                                          # the Debian packages
    openssl xxd                                   # the demo
)
if [[ ${1:-} == --demo ]]; then
    shift
else
    packages+=(
        libgtest-dev pkg-config python3           # the tests and their reports
        groff-base                                # the manual pages are shown
        aidl checkpolicy m4                       # the tests of the example for a device
    )
fi
packages+=("$@")

is_installed() {
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

missing=()
for package in "${packages[@]}"; do
    is_installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

fail() {
    echo "setup: $*" >&2
    exit 1
}

as_root() {
    if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

log=$(mktemp)
ticker=
trap '[[ -z $ticker ]] || kill "$ticker" 2>/dev/null' EXIT
trap 'exit 130' INT TERM  # once apt-get has ended

# Says every five seconds how far apt-get is: the last line of its log.
tell() {
    trap 'echo "setup: stopping as soon as apt-get can"' INT
    while true; do
        sleep 5 >/dev/null 2>&1 || continue
        printf 'setup: %3s s  %.60s\n' "$SECONDS" "$(tail -n 1 "$log" | tr -s '\r' '\n' | tail -n 1)"
    done
}

# Runs apt-get, which writes to the log. It ends in peace when it is interrupted: no package is left
# unpacked only.
apt() {
    local status=0
    tell &
    ticker=$!
    as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C \
        apt-get -q -o DPkg::Lock::Timeout=600 "$@" </dev/null >>"$log" 2>&1 || status=$?
    kill "$ticker" 2>/dev/null || true
    wait "$ticker" 2>/dev/null || true
    ticker=
    return "$status"
}

fail_with_log() {
    if grep -qE 'Temporary failure resolving|Could not resolve|Could not connect|Unable to connect' \
        "$log"; then
        set -- "no network: the package sources of this machine do not respond"
    else
        grep '^E:' "$log" >&2 || true
    fi
    fail "$1; the output of apt is in $log"
}

is_offered() {
    apt-cache show --no-all-versions "$1" >/dev/null 2>&1
}

# Debian 12 has no libplog-dev: offers the one of Debian 13, from the mirror that this machine uses
# already, and nothing else of Debian 13.
offer_plog_from_next_suite() {  # CODENAME
    local next=trixie mirror keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    mirror=$(apt-get indextargets --format '$(REPO_URI)' \
        'Created-By: Packages' 'Origin: Debian' 'Component: main' "Codename: $1" | head -n 1)
    [[ -n $mirror ]] || fail_with_log "this machine has no package source for Debian $1"
    [[ -e $keyring ]] || fail "no $keyring, which tells Debian's own packages from others"

    as_root install -m 644 /dev/stdin /etc/apt/preferences.d/zelkeymaster-plog <<END
# libplog-dev alone may come from $next.
Package: libplog-dev
Pin: release n=$next
Pin-Priority: 500

Package: *
Pin: release n=$next
Pin-Priority: -1
END
    as_root install -m 644 /dev/stdin /etc/apt/sources.list.d/zelkeymaster-plog.sources <<END
Types: deb
URIs: $mirror
Suites: $next
Components: main
Languages: none
Signed-By: $keyring
END
}

if [[ $(id -u) -ne 0 ]]; then
    command -v sudo >/dev/null ||
        fail "there is no sudo; as root, install ${missing[*]}, or run this script"
    # Asks for the password now, where nothing else is printed.
    sudo -n true 2>/dev/null || sudo -v
fi
echo "setup: installing ${missing[*]}"
# A third party's source that does not respond is no reason to stop: what counts is the installation.
apt update || true
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
if [[ $codename == bookworm && " ${missing[*]} " == *" libplog-dev "* ]] && ! is_offered libplog-dev; then
    offer_plog_from_next_suite "$codename"
    apt update || true
fi
apt install -y --no-install-recommends "${missing[@]}" ||
    fail_with_log "the packages could not be installed"
rm "$log"
