// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command texts that secure object operations are made of. Values come with their quote bytes;
// nothing is added or escaped. Wrong lists make a text that the engine refuses.

#pragma once

#include <string>
#include <vector>

namespace zelkm {

using StringList = std::vector<std::string>;

// The conditions of one command: columns and, in step, quoted values.
struct Conditions {
    const StringList& columns;
    const StringList& values;
};

std::string insertCommand(const StringList& columns, const StringList& values);
std::string selectCommand(const StringList& columns, const Conditions& conditions);
std::string updateCommand(const StringList& columns, const StringList& values,
                          const Conditions& conditions);
std::string deleteCommand(const Conditions& conditions);

}  // namespace zelkm
