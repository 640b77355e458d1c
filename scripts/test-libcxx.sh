#!/usr/bin/env bash
# Copyright 2026 The libzelkeymaster authors
# SPDX-License-Identifier: Apache-2.0
#
# Builds with clang and libc++, the standard library of a device, and runs the tests. Installs
# libc++ and GoogleTest's sources. Debian 12 or later.

set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh libc++-dev libc++abi-dev googletest
cmake --preset libcxx >/dev/null
cmake --build --preset libcxx
ctest --preset libcxx
