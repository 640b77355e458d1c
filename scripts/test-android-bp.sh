#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Lets the platform's own build system turn Android.bp into build rules, for a device's vendor
# image, and checks them. Installs Debian's packages of that build system. Debian 12 or later.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh golang-go golang-android-soong-dev golang-github-google-blueprint-dev \
    golang-github-golang-protobuf-1-3-dev

# The packages are sources below one folder, without modules.
GO111MODULE=off GOPATH=/usr/share/gocode go test -count=1 tests/checks/soong_test.go
