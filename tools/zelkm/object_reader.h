// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads objects from a text: CSV (RFC 4180) or JSON, as 'list' prints them. Pure functions; any
// bytes are allowed.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct ReadObject {
    std::string place;                // e.g. "line 7"; in JSON "object 3"
    std::vector<std::string> values;  // of all columns; an absent value is empty
    std::string problem;              // why it is no object; empty when it is one
};

// Throws Refused when the text is neither a JSON array nor CSV with a line of column names.
std::vector<ReadObject> readObjects(std::string_view text);

}  // namespace zelkm_tool
