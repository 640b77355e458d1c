// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads and writes objects through the library.

#pragma once

#include <sod_operation_param.h>

#include <cstdlib>
#include <memory>
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

inline constexpr char kBetween[] = "::";  // creator and alias

// Creator, "::" and alias of an object that begins with alias and creator.
std::string nameOf(const Row& object);

// Where the objects of this name are, as it is or as 'aliases' prints it. Throws Refused when there
// is none.
std::vector<size_t> findNamed(const std::vector<Row>& objects, const std::string& name);

// Stores an object, given by all six values. Empty values are left out. Returns the library's
// result.
int insert(Session& session, const Row& object);

// Replaces the whole store by these objects, given by all six values: one encryption, and one
// replacement of the file. Throws Refused; its text begins with `what`.
void storeObjects(Session& session, const std::vector<Row>& objects, const std::string& what);

// Throws Refused when a store of this length could not be read any more. Warns when it is long for
// a device.
void checkStoreLen(const SessionOptions& options, uint64_t len);

struct Free {
    void operator()(uint8_t* data) const { std::free(data); }
};
using MallocBytes = std::unique_ptr<uint8_t, Free>;

std::string numObjects(size_t count);

}  // namespace zelkm_tool
