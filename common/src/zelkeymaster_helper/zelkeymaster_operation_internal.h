// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Functions of the operation object's source that are not members and that tests reach as well.

#pragma once

#include <hidl/Status.h>

#include <cstdint>

// Writes a message to the error file, at most 1022 bytes of it. Level 'E' or 'W'; others are
// dropped. `file` is ignored: lines carry the name of the operation object's source.
__attribute__((format(printf, 4, 5))) void log_to_file(char level, const char* file, const int line,
                                                       const char* fmt, ...);

namespace zelkm {

// Turns the transport status of a finished keymaster call into 0 or -1000, and logs a failure.
[[nodiscard]] int32_t ConverHIDLErrorToKeymasterError(const android::hardware::Return<void>& ret);

}  // namespace zelkm
