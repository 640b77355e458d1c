// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command language: which commands are accepted, and what becomes of each part. Nothing beyond
// the text is read.

#include "db_command_parser.h"

#include <utility>
#include <vector>

#include "engine.h"

namespace {

using namespace test;

std::string textOf(const db_token_t& token) {
    return "[" + test::readable(std::string(token.token, token.token + token.len)) + "]";
}

// The parts in brackets, or what is wrong with the command.
std::string commandOf(const db_token_t& text) {
    zelkm::ParsedCommand command;
    const zelkm::CommandError error = zelkm::parse_command(text.token, text.len, &command);
    if (error != zelkm::CommandError::kNone) {
        const char* const parts[] = {"", "word", "columns", "values", "no WHERE"};
        return parts[static_cast<int>(error)];
    }
    return zelkm::commandWord(command.id) + textOf(command.columns) + textOf(command.values) +
           textOf(command.where);
}

// The items in brackets, or the tokenizer's state and the place of the error: "1@0".
std::string listOf(const db_token_t& text) {
    db_parsed_tokens_t tokens;
    zelkm::TokenizerError error;
    const int status = zelkm::parse_tokens(&text, &tokens, &error);
    if (status != 0) {
        EXPECT_EQ(ZELKM_SYNTAX_ERROR, status);
        return error.state == 0
                   ? "too many"
                   : std::to_string(error.state) + "@" + std::to_string(error.at - text.token);
    }
    std::string list;
    for (uint32_t i = 0; i < tokens.count; ++i) {
        list += textOf(tokens.tokens[i]);
    }
    return list;
}

// Column, operator and value of each condition, or "refused".
std::string conditionsOf(const db_token_t& text) {
    db_parsed_where_set_t set;
    zelkm::TokenizerError error;
    const int status = zelkm::parseWhereSet(&text, &set, &error);
    EXPECT_TRUE(status == 0 || status == ZELKM_SYNTAX_ERROR) << status;
    std::string list;
    for (uint32_t i = 0; i < set.count; ++i) {
        const db_parsed_where_t& where = set.where[i];
        list += textOf(where.column) + std::to_string(where.op) + textOf(where.value);
    }
    return status == 0 ? list : "refused";
}

void expectEach(std::string (*describe)(const db_token_t&),
                const std::vector<std::pair<const char*, const char*>>& cases) {
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(expected, describe(Exact(raw(text)).token())) << text;
    }
}

TEST(CommandParser, FindsThePartsOfCommands) {
    expectEach(commandOf, {{"INSERT (A,B) VALUE (x,y)", "INSERT[A,B][x,y][]"},
                           {"INSERTxx(A)yy(x)(')(y)", "INSERT[A][x)(')(y][]"},
                           {"INSERT $A$$x$", "INSERT[A][x][]"},
                           {"SELECT (A) WHERE ", "SELECT[A][][]"},
                           {"SELECT (A)xy WHERE B=c WHERE d", "SELECT[A][][B=c WHERE d]"},
                           {"SELECT WHERE (A)", "SELECT[A][][]"},
                           {"DELETE WHERE ALIAS=a", "DELETE[][][ALIAS=a]"},
                           {"DELETEWHERE x=y", "DELETE[][][]"},
                           {"insert (A) VALUE (x)", "word"},
                           {" SELECT (A)", "word"},
                           {"SELECT A)", "columns"},
                           {"INSERT (A) VALUE (a) ", "values"},
                           {"INSERT (A) $", "values"},
                           {"UPDATE (A) VALUE (x) WHERE B=c", "values"},
                           {"UPDATE (A) VALUE (x) WHERE B=(c)", "no WHERE"}});
}

TEST(CommandParser, SplitsLists) {
    expectEach(listOf, {{"", ""},
                        {"a, b ,c", "[a][b][c]"},
                        {" a b ", "[a b]"},
                        {"\ta\t,b\n", "[\ta\t][b\n]"},  // only blanks are blanks
                        {"' x,y '", "[ x,y ]"},
                        {" 'a' , 'b'  ,c ,' '", "[a][b][c][ ]"},
                        {"a,'b',c,'d',e,f", "[a][b][c][d][e][f]"},
                        {"a,b,c,d,e,f,g", "too many"},
                        {"a,b,c,d,e,f,'g'", "too many"},
                        {"a,b,c,d,e,f,g,h", "too many"},
                        {",", "1@0"},
                        {"a,,b", "1@2"},
                        {"   ", "1@3"},
                        {"',a'", "2@1"},
                        {"a,'", "2@3"},
                        {"'a,b", "3@4"},
                        {"'a'b", "4@3"},
                        {"a'b", "5@1"}});
}

TEST(CommandParser, SplitsConditions) {
    constexpr char kSix[] = "[A]1[1][B]1[2][C]1[3][D]1[4][E]1[5][F]1[6]";
    expectEach(conditionsOf, {{"", ""},
                              {"ALIAS <= 5", "[ALIAS]3[5]"},
                              {" A B<x", "[A B]2[x]"},
                              {"A>x AND A>= 'x y' ", "[A]4[x][A]5[x y]"},
                              {"A< =x", "[A]2[=x]"},
                              {"A=>x", "[A]1[>x]"},
                              {"A$x", "[A]0[x]"},  // NUL ends the column, but is no operator
                              {"A='a,b=c' AND B=c", "[A]1[a,b=c][B]1[c]"},
                              {"A=a AND ", "[A]1[a][]0[]"},
                              {" AND A=a", "[]0[][A]1[a]"},
                              {"A=1 AND B=2 AND C=3 AND D=4 AND E=5 AND F=6", kSix},
                              {"A=1 AND B=2 AND C=3 AND D=4 AND E=5 AND F=6 AND G", kSix},
                              {"ALIAS", "refused"},
                              {"A=  ", "refused"},
                              {"A=a,b", "refused"},
                              {"A='a AND b'", "refused"}});  // quotes do not protect " AND "
}

TEST(CommandParser, StripsBytesAtBothEnds) {
    const Exact text("xxaxbx");
    db_token_t token = text.token();
    strip_char(&token, 'x');
    EXPECT_EQ(text.data() + 2, token.token);
    EXPECT_EQ(3u, token.len);
    token.len = 0;
    strip_char(&token, 'x');
    EXPECT_EQ(0u, token.len);
}

}  // namespace
