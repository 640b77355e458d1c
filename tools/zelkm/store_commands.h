// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The commands on secure objects. Each throws WrongUsage before anything is touched, or Refused.

#pragma once

#include <optional>
#include <string>
#include <vector>

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
};

struct ListOptions {
    std::vector<std::string> where;
    std::string columns;  // "A,B"; empty for all
    bool json = false;
    bool csv = false;
};

struct RemoveOptions {
    std::vector<std::string> where;
    bool all = false;
};

void addObject(const SessionOptions& session, const AddOptions& options);
void listObjects(const SessionOptions& session, const ListOptions& options);
void removeObjects(const SessionOptions& session, const RemoveOptions& options);
void listAliases(const SessionOptions& session);

// Runs one command text of the engine, with \xNN escapes, as it is.
void runQuery(const SessionOptions& session, const std::string& text);

}  // namespace zelkm_tool
