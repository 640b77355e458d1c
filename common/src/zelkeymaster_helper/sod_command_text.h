// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts that secure object operations are made of. Values come with their quote bytes;
// nothing is added or escaped. Wrong lists make a text that the engine refuses.

#pragma once

#include <cstddef>
#include <string_view>

#include "malloc_buffer.h"
#include "sod_operation_param.h"

namespace zelkm {

// Wiped at its end, since it holds values. data is null when there was no memory for it.
struct CommandText {
    SecretBuffer data;
    size_t len = 0;

    std::string_view view() const { return {reinterpret_cast<const char*>(data.get()), len}; }
};

CommandText insertCommand(SODOperationParam& p);
CommandText selectCommand(SODOperationParam& p);
CommandText updateCommand(SODOperationParam& p);
CommandText deleteCommand(SODOperationParam& p);

}  // namespace zelkm
