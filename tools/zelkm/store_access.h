// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads and writes objects through the library.

#pragma once

#include <sod_operation_param.h>

#include <string>
#include <vector>

#include "session.h"
#include "store_values.h"

namespace zelkm_tool {

using Row = std::vector<std::string>;  // values of the columns that were asked for

std::vector<Condition> parseConditions(const std::vector<std::string>& texts);
SODOperationParam paramWith(const std::vector<Condition>& conditions);

// The values of the named columns, of every object that satisfies all conditions.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions,
                        const std::vector<std::string>& columns);

// Stores an object, given by all six values. Empty values are left out. Returns the library's
// result.
int insert(Session& session, const Row& object);

std::string numObjects(size_t count);

}  // namespace zelkm_tool
