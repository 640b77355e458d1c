// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What mail, editors and web pages make of a file: encodings and containers that hide what it was.

#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace zelkm_tool {

struct Disguise {
    std::string words = {};    // e.g. "is base64: base64 -d"; empty for none
    bool may_hold_it = false;  // it holds what it should be, or is an archive
};

// What these bytes are if they were encoded or packed on their way. `is_right` tells what they
// should be.
using IsRight = std::function<bool(std::string_view)>;
Disguise disguiseOf(std::string_view bytes, const IsRight& is_right);

// The container that the first bytes of a file show, e.g. "is gzip: gzip -dc"; none for others.
Disguise containerOf(std::string_view bytes);

// Whether it is text that people can read.
bool isText(std::string_view bytes);

}  // namespace zelkm_tool
