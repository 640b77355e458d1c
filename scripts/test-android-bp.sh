#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Lets the platform's own build system turn Android.bp, and that of the example for a device, into
# build rules for a device's vendor image, and checks them. Then compiles, without linking, the source
# of that example that needs binder. Installs Debian's packages of that build system, and of binder's
# headers. Debian 12 or later.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh golang-go golang-android-soong-dev golang-github-google-blueprint-dev \
    golang-github-golang-protobuf-1-3-dev \
    android-platform-frameworks-native-headers android-libutils-dev

# The packages are sources below one folder, without modules.
GO111MODULE=off GOPATH=/usr/share/gocode go test -count=1 tests/checks/soong_test.go

made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
cd examples/device
aidl --lang=cpp -Iaidl --header_out="$made" -o "$made" aidl/vendor/zelkeymaster/IObjectStore.aidl
# Binder's headers include less of the C++ library than they use.
g++ -std=c++17 -fsyntax-only -fno-exceptions -fno-rtti -Wall -Wextra -Werror -include limits -include memory \
    -I ../../tests/checks/device_platform -I ../../platform/host/include -I ../../include -I "$made" \
    -idirafter /usr/include/android zeld.cpp
echo "zeld.cpp compiles"
