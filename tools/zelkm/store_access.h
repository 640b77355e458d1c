// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Objects in and out of the store, through the library.

#pragma once

#include <sod_operation_param.h>

#include <string>
#include <vector>

#include "session.h"
#include "store_values.h"

namespace zelkm_tool {

using Row = std::vector<std::string>;  // values, of the columns that go with it

std::vector<Condition> parseConditions(const std::vector<std::string>& texts);
SODOperationParam paramWith(const std::vector<Condition>& conditions);

// The values of the named columns of every object that satisfies the conditions.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions,
                        const std::vector<std::string>& columns);

// Stores an object of all six values; an empty one is left out. Result of the library.
int insert(Session& session, const Row& object);

std::string numObjects(size_t count);

}  // namespace zelkm_tool
