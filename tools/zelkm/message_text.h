// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Messages and result codes in sentences.

#pragma once

#include <string>

#include "message_match.h"
#include "result_codes.h"

namespace zelkm_tool {

// The meaning of a logged message, with the information in its arguments. `with_code` adds the
// meaning of its result code.
std::string describe(const FoundMessage& found, bool with_code);

// The result code among the arguments; null when there is none, or when it is unknown.
const ResultCode* codeIn(const FoundMessage& found);

// E.g. "-49 SECURE_HW_COMMUNICATION_FAILED: the secure hardware does not respond".
std::string nameAndMeaning(const ResultCode& result);

// 'E', 'W' or 'D'.
char letterOf(Level level);

// The sections on messages and result codes of docs/diagnostics.md, in Markdown.
std::string markdownTables();

}  // namespace zelkm_tool
