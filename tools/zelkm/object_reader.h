// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Objects from a text: CSV (RFC 4180) or JSON, as 'list' prints them. Pure functions, any bytes.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct ReadObject {
    std::string place;                // for a message: "line 7", or "object 3" in JSON
    std::vector<std::string> values;  // of all columns; empty where absent
    std::string problem;              // why it is none; empty when it is one
};

// Throws Refused when the text as a whole is neither: no JSON array, no line of column names.
std::vector<ReadObject> readObjects(std::string_view text);

}  // namespace zelkm_tool
