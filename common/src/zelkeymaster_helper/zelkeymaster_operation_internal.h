// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Functions of the operation object's source that are not members and that tests reach as well.

#pragma once

#include <hidl/Status.h>

#include <cstdint>

// The store's encryption callback: forwards to DBEncrypt() of the ZelKeymasterOperation at `ctx`;
// -1000 without one.
[[nodiscard]] int DBEncryptCB(void* ctx, unsigned int mode, unsigned char* plain,
                              unsigned char* cipher, unsigned int len, unsigned char* iv,
                              unsigned char* tag, unsigned char* aad, unsigned int aadLen);

namespace zelkm {

// Turns the transport status of a finished keymaster call into 0 or -1000, and logs a failure.
[[nodiscard]] int32_t ConverHIDLErrorToKeymasterError(const android::hardware::Return<void>& ret);

// Writes a message to the error file, at most 1022 bytes of it. Level 'E' or 'W'; others are
// dropped. `file` is ignored: lines carry the name of the operation object's source.
__attribute__((format(printf, 4, 5))) void log_to_file(char level, const char* file, int line,
                                                       const char* fmt, ...);

}  // namespace zelkm
