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

inline constexpr char kWhereHelp[] = "A condition; if several are given, all must hold";
inline constexpr char kBetween[] = "::";  // creator and alias

// Throws WrongUsage as parseCondition() and checkConditions() do.
std::vector<Condition> parseConditions(const std::vector<std::string>& texts, bool careless,
                                       bool star_is_careless);

// What the library is to do: with the objects that satisfy all conditions, or with an object, given
// by all six values. Empty values are left out.
SODOperationParam paramWith(const std::vector<Condition>& conditions);
SODOperationParam paramOf(const Row& object);

// The values of the named columns, of every object that satisfies all conditions.
std::vector<Row> select(Session& session, const std::vector<Condition>& conditions = {},
                        const std::vector<std::string>& columns = parseColumns(""));

// Creator, "::" and alias of an object that begins with alias and creator.
std::string nameOf(const Row& object);

// Where the objects of this name are, as it is or as 'aliases' prints it. Throws Refused when there
// is none.
std::vector<size_t> findNamed(const std::vector<Row>& objects, const std::string& name);

// Replaces the whole store by these objects, given by all six values: one encryption, and one
// replacement of the file. Throws Refused; its text begins with `what`.
void storeObjects(Session& session, const std::vector<Row>& objects, const std::string& what);

// Throws Refused when a store of this length could not be read any more. Warns when it is long for
// a device.
void checkStoreLen(const SessionOptions& options, uint64_t len);

}  // namespace zelkm_tool
