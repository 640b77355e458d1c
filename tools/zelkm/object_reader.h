// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reads objects from a text: CSV (RFC 4180) or JSON, as 'list' prints them, and CSV as spreadsheets
// write it. Pure functions; any bytes are allowed.

#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

// A text with more objects is refused, good and bad ones counted.
inline constexpr size_t kMaxObjects = 200000;

// Receives one object after the other: where it is ("line 7", in a JSON array "object 3"), the
// values of all columns, and why it is no object. An absent value is empty; so is the problem of a
// good object.
using ObjectVisitor = std::function<void(
    const std::string& place, std::vector<std::string>&& values, const std::string& problem)>;

// CSV begins with the names of its columns, in any case. Its values are separated by commas,
// semicolons or tabs. Records without any value are skipped. JSON is an array of objects, or just
// objects, one after the other. Keeps no object in memory. Throws Refused when the text is
// something else, or has too many objects.
void readObjects(std::string_view text, const ObjectVisitor& visit);

}  // namespace zelkm_tool
