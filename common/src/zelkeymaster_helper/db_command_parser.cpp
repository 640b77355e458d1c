// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "db_command_parser.h"

#include <cstring>
#include <string_view>

namespace zelkm {
namespace {

constexpr uint8_t kQuote = 0x1F;
constexpr std::string_view kWhere = " WHERE ";
constexpr std::string_view kAnd = " AND ";
constexpr std::string_view kCommandWords[SDB_NUM_COMMANDS] = {"INSERT", "SELECT", "DELETE",
                                                              "UPDATE"};

// The numbers appear in a log message.
enum State {
    kBetween = 1,      // between items, skipping blanks
    kOpened = 2,       // just after an opening quote
    kInQuotes = 3,     // inside a quoted item
    kAfterQuotes = 4,  // after a closing quote
    kUnquoted = 5,     // inside an unquoted item
};

std::string_view view(const db_token_t& token) {
    return {reinterpret_cast<const char*>(token.token), token.len};
}

db_token_t tokenOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size())};
}

std::string_view trimBlanks(std::string_view text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == text.npos) {
        return text.substr(0, 0);
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The position of the first byte that is `wanted` or NUL. The texts are short: find_first_of()
// makes a call for each byte, and is many times slower.
template <typename Wanted>
size_t findByte(std::string_view text, size_t from, Wanted wanted) {
    for (size_t at = from; at < text.size(); ++at) {
        if (text[at] == '\0' || wanted(text[at])) {
            return at;
        }
    }
    return text.npos;
}

size_t findDelimiter(std::string_view text, char delimiter, size_t from) {
    return findByte(text, from, [delimiter](char byte) { return byte == delimiter; });
}

int syntaxError(State state, std::string_view text, size_t at, size_t token_len,
                TokenizerError* error) {
    const uint8_t* start = tokenOf(text).token;
    *error = {state, start, start + at, at < text.size() ? text[at] : ' ',
              static_cast<uint32_t>(token_len)};
    return ZELKM_SYNTAX_ERROR;
}

bool addToken(std::string_view token, bool quoted, db_parsed_tokens_t* out) {
    if (out->count == SDB_MAX_TOKENS) {
        return false;
    }
    out->tokens[out->count++] = tokenOf(quoted ? token : trimBlanks(token));
    return true;
}

}  // namespace

const char* commandWord(uint32_t id) {
    return kCommandWords[id].data();
}

CommandError parse_command(const uint8_t* text, uint32_t len, ParsedCommand* out) {
    *out = {};
    const std::string_view command(reinterpret_cast<const char*>(text), len);
    while (command.substr(0, kCommandWords[out->id].size()) != kCommandWords[out->id]) {
        if (++out->id == SDB_NUM_COMMANDS) {
            return CommandError::kUnknownCommand;
        }
    }
    size_t position = kCommandWords[out->id].size();

    if (out->id != SDB_DELETE) {
        const size_t open = findDelimiter(command, '(', position);
        const size_t close = open == command.npos ? open : findDelimiter(command, ')', open + 1);
        if (close == command.npos) {
            return CommandError::kColumnList;
        }
        out->columns = tokenOf(command.substr(open + 1, close - open - 1));
        position = close + 1;
    }

    if (out->id == SDB_INSERT || out->id == SDB_UPDATE) {
        const size_t open = findDelimiter(command, '(', position);
        const size_t last = command.size() - 1;
        if (open == command.npos || open == last ||
            (command[last] != ')' && command[last] != '\0')) {
            return CommandError::kValueList;
        }
        out->values = tokenOf(command.substr(open + 1, last - open - 1));
        position = command.size();
    }

    if (out->id != SDB_INSERT) {
        const size_t where = command.find(kWhere, position);
        if (where != command.npos) {
            out->where = tokenOf(command.substr(where + kWhere.size()));
        } else if (out->id == SDB_UPDATE) {
            return CommandError::kUpdateWithoutWhere;
        }
    }
    return CommandError::kNone;
}

int parse_tokens(const db_token_t* list, db_parsed_tokens_t* out, TokenizerError* error) {
    out->count = 0;
    *error = {};
    const std::string_view text = view(*list);
    if (text.empty()) {
        return ZELKM_OK;
    }

    State state = kBetween;
    bool quoted = false;
    size_t start = 0;
    size_t len = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const uint8_t byte = static_cast<uint8_t>(text[at]);
        const bool complete = state == kAfterQuotes || state == kUnquoted;
        if (byte == kQuote) {
            if (state == kBetween) {
                quoted = true;
                state = kOpened;
            } else if (state == kInQuotes) {
                state = kAfterQuotes;
            } else {
                return syntaxError(state, text, at, len, error);
            }
        } else if (byte == ',' && complete) {
            if (!addToken(text.substr(start, len), quoted, out)) {
                return ZELKM_SYNTAX_ERROR;
            }
            quoted = false;
            state = kBetween;
        } else if (byte == ' ' && (state == kBetween || state == kAfterQuotes)) {
            continue;
        } else if (state == kAfterQuotes || byte == ',') {
            return syntaxError(state, text, at, len, error);
        } else {
            start = at;
            state = state == kBetween ? kUnquoted : kInQuotes;
            // Skips the rest of the token, up to a byte that may end it.
            while (at + 1 < text.size() && text[at + 1] != kQuote &&
                   (state == kInQuotes || text[at + 1] != ',')) {
                ++at;
            }
            len = at + 1 - start;
        }
    }

    if (state != kAfterQuotes && state != kUnquoted) {
        return syntaxError(state, text, text.size(), len, error);
    }
    return addToken(text.substr(start, len), quoted, out) ? ZELKM_OK : ZELKM_SYNTAX_ERROR;
}

int parse_where_token(const db_token_t* text, db_parsed_where_t* out, TokenizerError* error) {
    *out = {};
    *error = {};
    const std::string_view condition = view(*text);
    if (condition.empty()) {
        return ZELKM_OK;
    }
    const size_t at =
        findByte(condition, 0, [](char byte) { return byte == '=' || byte == '<' || byte == '>'; });
    if (at == condition.npos) {
        return ZELKM_SYNTAX_ERROR;
    }

    out->column = tokenOf(trimBlanks(condition.substr(0, at)));
    size_t value = at + 1;
    if (condition[at] == '=') {
        out->op = SDB_OP_EQUAL;
    } else if (condition[at] != '\0') {
        out->op = condition[at] == '<' ? SDB_OP_LESS : SDB_OP_GREATER;
        if (value < condition.size() && condition[value] == '=') {
            out->op += 1;
            ++value;
        }
    }

    const db_token_t rest = tokenOf(condition.substr(value));
    db_parsed_tokens_t values;
    const int status = parse_tokens(&rest, &values, error);
    if (status != ZELKM_OK) {
        return status;
    }
    if (values.count != 1) {
        return ZELKM_SYNTAX_ERROR;
    }
    out->value = values.tokens[0];
    return ZELKM_OK;
}

int parseWhereSet(const db_token_t* text, db_parsed_where_set_t* out, TokenizerError* error) {
    out->count = 0;
    *error = {};
    std::string_view rest = view(*text);
    if (rest.empty()) {
        return ZELKM_OK;
    }
    while (out->count < SDB_MAX_CONDITIONS) {
        const size_t end = rest.find(kAnd);
        const db_token_t condition = tokenOf(rest.substr(0, end));
        const int status = parse_where_token(&condition, &out->where[out->count], error);
        if (status != ZELKM_OK) {
            return status;
        }
        ++out->count;
        if (end == rest.npos) {
            break;
        }
        rest.remove_prefix(end + kAnd.size());
    }
    return ZELKM_OK;
}

}  // namespace zelkm
