// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What mail, editors and web pages make of a file: encodings and containers that hide what it was.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

struct Disguise {
    const char* name;     // e.g. "base64"
    const char* undo;     // a command that reads the file on standard input, and prints what it was
    std::string content;  // what it was
};

// The disguises that these bytes can be. A short text can be several.
std::vector<Disguise> disguisesOf(std::string_view bytes);

// The container that the first bytes of a file show, as in "is gzip"; null when there is none.
struct Container {
    const char* name;
    const char* undo;  // as above, or other advice
    bool is_archive;
};
const Container* containerOf(std::string_view bytes);

// Whether it is UTF-8 in which U+FFFD stands for bytes that somebody could not read as text.
bool hasReplacements(std::string_view bytes);

// Whether it is text that people can read.
bool isText(std::string_view bytes);

}  // namespace zelkm_tool
