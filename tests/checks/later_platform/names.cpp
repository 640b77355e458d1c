// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// On a later platform the object takes the later handle, and the example's keymaster has all that
// this handle asks for. Compiling is the test.

#include <zelkeymaster_operation.h>

#include <type_traits>

#include "vendor_keymaster.h"

static_assert(
    std::is_constructible_v<ZelKeymasterOperation,
                            android::hardware::keymaster::V4_1::support::Keymaster*, bool>);
static_assert(!std::is_abstract_v<example::VendorKeymaster>);
