// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands on secure objects. Each throws Refused, or WrongUsage before it touches anything.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "output.h"
#include "session.h"

namespace zelkm_tool {

struct AddOptions {
    std::string alias;
    std::string creator;
    std::optional<std::string> admin;
    std::optional<std::string> accessor;
    std::optional<std::string> creator_uid;
    bool privileged = false;
    bool duplicate = false;
    bool as_is = false;  // also store values that no condition can ask for
};

struct ListOptions {
    std::vector<std::string> where;
    std::string columns;  // "A,B"; empty for all
    Format format = Format::kTable;
};

struct RemoveOptions {
    std::vector<std::string> where;
    bool all = false;
    bool dry_run = false;
};

void addObject(const SessionOptions& session, const AddOptions& options);
void listObjects(const SessionOptions& session, const ListOptions& options);
void removeObjects(const SessionOptions& session, const RemoveOptions& options);
void listAliases(const SessionOptions& session);

// Shows every object whose creator, "::" and alias make up `name`, as they are or as listAliases()
// prints them.
void showObjects(const SessionOptions& session, const std::string& name, bool json);

}  // namespace zelkm_tool
