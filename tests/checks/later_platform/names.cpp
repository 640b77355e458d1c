// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// On a later platform the object takes the later handle. Compiling is the test.

#include <zelkeymaster_operation.h>

#include <type_traits>

static_assert(
    std::is_constructible_v<ZelKeymasterOperation,
                            android::hardware::keymaster::V4_1::support::Keymaster*, bool>);
