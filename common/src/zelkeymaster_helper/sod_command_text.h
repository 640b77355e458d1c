// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts that secure object operations are made of. Values come with their quote bytes;
// nothing is added or escaped. Wrong lists make a text that the engine refuses.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "malloc_buffer.h"

namespace zelkm {

using StringList = std::vector<std::string>;

// The conditions of one command: columns and, in step, quoted values.
struct Conditions {
    const StringList& columns;
    const StringList& values;
};

// Wiped at its end, since it holds values. data is null when there was no memory for it.
struct CommandText {
    SecretBuffer data;
    size_t len = 0;

    std::string_view view() const { return {reinterpret_cast<const char*>(data.get()), len}; }
};

CommandText insertCommand(const StringList& columns, const StringList& values);
CommandText selectCommand(const StringList& columns, const Conditions& conditions);
CommandText updateCommand(const StringList& columns, const StringList& values,
                          const Conditions& conditions);
CommandText deleteCommand(const Conditions& conditions);

}  // namespace zelkm
