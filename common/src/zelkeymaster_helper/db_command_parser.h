// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command language: recognises a command, splits its lists and its WHERE clause.
//
//   INSERT … ( columns ) … ( values )          the value list ends the text
//   SELECT … ( columns ) [ … WHERE conditions ]
//   DELETE [ … WHERE conditions ]
//   UPDATE … ( columns ) … ( values ) WHERE …   never accepted: nothing may follow the values
//
// The bytes between the parts are not looked at. When a single delimiter is searched for, a NUL
// counts as that delimiter. Stored data and callers depend on these rules as they are.
//
// All results point into the text. Nothing is read beyond the given length. Nothing is logged:
// failures are returned as values.

#pragma once

#include "velt_secure_db.h"

namespace zelkm {

enum class CommandError {
    kNone,
    kUnknownCommand,
    kColumnList,
    kValueList,
    kUpdateWithoutWhere,
};

struct ParsedCommand {
    uint32_t id;  // SDB_INSERT …
    db_token_t columns;
    db_token_t values;
    db_token_t where;
};

// Where and how a list broke the rules. With state 0 there is nothing to report.
struct TokenizerError {
    int state;            // of the tokenizer; see db_command_parser.cpp
    const uint8_t* text;  // the list
    const uint8_t* at;    // the offending byte, or the end of the list
    char byte;            // that byte; a blank at the end of the list
    uint32_t len;         // of the token being read, or of the last one
};

// The word of a command, e.g. "INSERT" for SDB_INSERT.
const char* commandWord(uint32_t id);

[[nodiscard]] CommandError parse_command(const uint8_t* text, uint32_t len, ParsedCommand* out);

// Splits a comma-separated list. An empty text has no items. Returns 0, or -911 with the reason in
// `error`; state 0 means that the list had too many items. Tokens beyond the count are not touched.
// The same holds for the conditions below.
[[nodiscard]] int parse_tokens(const db_token_t* text, db_parsed_tokens_t* out,
                               TokenizerError* error);

// Splits one condition, "column operator value". Returns 0 or -911, with `error` as above.
[[nodiscard]] int parse_where_token(const db_token_t* text, db_parsed_where_t* out,
                                    TokenizerError* error);

// Splits a WHERE clause at " AND ". What follows a sixth condition is ignored.
[[nodiscard]] int parseWhereSet(const db_token_t* text, db_parsed_where_set_t* out,
                                TokenizerError* error);

}  // namespace zelkm
