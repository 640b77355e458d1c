// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Functions of the operation object's source that are no members. Tests call them as well.

#pragma once

#include <hidl/Status.h>

#include <cstdint>

// Writes at most 1022 bytes of a message to the error file. `level` is 'E' or 'W'; a message with
// another level is dropped. `file` is ignored: each line names the operation object's source.
__attribute__((format(printf, 4, 5))) void log_to_file(char level, const char* file, const int line,
                                                       const char* fmt, ...);

namespace zelkm {

// Turns the transport status of a finished keymaster call into 0 or -1000. Logs a failure.
[[nodiscard]] int32_t ConverHIDLErrorToKeymasterError(const android::hardware::Return<void>& ret);

}  // namespace zelkm
