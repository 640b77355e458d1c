// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts of secure object operations. Values come with their quote bytes: nothing is
// added, and nothing is escaped. Lists of different lengths make a text that the engine refuses.

#pragma once

#include <cstddef>
#include <string_view>

#include "malloc_buffer.h"
#include "sod_operation_param.h"

namespace zelkm {

// A command. The destructor wipes it, since it holds values. `data` is null when there was no
// memory.
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
