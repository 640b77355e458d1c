// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Messages and result codes in sentences.

#pragma once

#include <string>

#include "message_match.h"
#include "result_codes.h"

namespace zelkm_tool {

// What a logged message means, with what its arguments tell. `with_code`: with its result code,
// too.
std::string describe(const FoundMessage& found, bool with_code);

// The result code among the arguments; null when the message has none, or one that is not known.
const ResultCode* codeIn(const FoundMessage& found);

// E.g. "-49 SECURE_HW_COMMUNICATION_FAILED: the secure hardware does not answer".
std::string nameAndMeaning(const ResultCode& result);

// 'E', 'W' or 'D'.
char letterOf(Level level);

// The sections of docs/diagnostics.md on messages and result codes, in Markdown.
std::string markdownTables();

}  // namespace zelkm_tool
