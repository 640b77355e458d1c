// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Which values satisfy a condition, and which rows all of them.

#include "db_matching.h"

#include <utility>
#include <vector>

#include "engine.h"

namespace {

using namespace test;

class Matching : public test::Engine {};

struct MatchCase {
    const char* pattern;
    Lines matching;
    Lines others;
};

TEST_F(Matching, ComparesWithPatternsAndEachItemOfAList) {
    const MatchCase patterns[] = {
        {"", {"*"}, {"x"}},
        {"*", {"x", "*", "[*"}, {""}},
        {"abc", {"abc", "*"}, {"ab", "abcd", "ABC", "**"}},
        {"abc*", {"abc", "abcd"}, {"ab"}},
        {"*#abc", {"x#abc", "#abc"}, {"xabc", "x##abc", "x#abcd"}},
        {"*_*#z", {"p_q#z", "_#z"}, {"p#q_z", "p_q#"}},
        {"*x", {}, {"x", "ax"}},
        {"[5..]", {"5", "123456", "4294967295", "007"}, {"4", "4294967296", "x5", "5x", " 5"}},
        {"[..5]", {"0", "5"}, {"6", "-1"}},
        {"a[1..3]b", {"a2b"}, {"a2", "a4b", "ab"}},
        {"[..3]b", {"0b"}, {"b"}},
        {"a[..3]b", {"a0b"}, {"ab"}},
        {"[1..3][5..6]", {}, {"25", "2"}},  // the first range takes all digits
    };
    const MatchCase lists[] = {{",,", {"*"}, {}},
                               {",", {}, {"*"}},
                               {"a,b", {"a", "b"}, {"a,b", ""}},
                               {",a,,b,", {"a", "b"}, {}},
                               {"x,[1..5],y*", {"3", "yz"}, {"6"}}};
    const auto check = [](const MatchCase& c, decltype(simple_reg_cmp)* compare) {
        for (const std::string& subject : c.matching) {
            EXPECT_TRUE(matches(c.pattern, subject, 4, compare)) << c.pattern << " " << subject;
        }
        for (const std::string& subject : c.others) {
            EXPECT_FALSE(matches(c.pattern, subject, 4, compare)) << c.pattern << " " << subject;
        }
    };
    for (const MatchCase& c : patterns) {
        check(c, simple_reg_cmp);
        // Without patterns everything but "*" stands for itself.
        EXPECT_EQ(c.pattern[0] != '\0', matches(c.pattern, c.pattern, 0)) << c.pattern;
        EXPECT_FALSE(matches(c.pattern, "x", 0)) << c.pattern;
    }
    for (const MatchCase& c : lists) {
        check(c, enumerated_simple_reg_cmp);
    }
    for (const char* broken :
         {"[", "[1", "[1.2]", "[1..2", "[x..2]", "[2..0]", "[0..4294967296]"}) {
        EXPECT_FALSE(matches(broken, "1", 4)) << broken;
    }
    EXPECT_EQ(0, simple_reg_cmp(reinterpret_cast<const uint8_t*>("*"), 1, nullptr, 1, 1));
    static_cast<void>(simple_reg_cmp(nullptr, 0, nullptr, 0, 0));  // a cast drops a result
}

TEST_F(Matching, SelectsRowsThatSatisfyAllConditions) {
    load(store(4,
               "a^1^1000,1001^1000,[10000..19999]^1000^1^\n"
               "b^2^,7,,8,^*^^^\n"
               "c^3^^^^^\n"
               "a^4^*^u_*#x,[5..]^10^^\n$"));
    const std::string six =
        "ALIAS=a AND ALIAS=* AND ADMIN=* AND ALIAS=a AND CREATOR=* AND PRIV_ACC=1";
    const std::string star = "ALIAS=* AND CREATOR=* AND ";
    const std::pair<const char*, Lines> cases[] = {
        {"1234", {"", "ALIAS=*", "CREATOR_UID=*", "FOO=x", "ALIASX=x", "alias=x", "=x"}},
        {"124", {"ADMIN=*", "ACCESSOR=*", "ACCESSOR=1000"}},
        {"14", {"ALIAS=a", "ALIAS='a'"}},
        {"24", {"ACCESSOR=20000", "ACCESSOR=u_v#x"}},
        {"1", {"PRIV_ACC=1", "ADMIN=1000", six, six + " AND ALIAS=b"}},
        {"2", {"ADMIN=7", "ADMIN=8", "ACCESSOR=1000x", "FOO=x AND ALIAS=b"}},
        {"4", {"CREATOR=4 AND ALIAS=a", "CREATOR_UID=10", "FOO=x AND CREATOR=4", " CREATOR =4"}},
        {"14", {" ALIAS =a", "ALIAS=* AND FOO=x AND ALIAS = a "}},
        {"2", {star + star + "CREATOR=2 AND ADMIN=7", star + "CREATOR=2"}},
        {"", {star + star + "CREATOR=2 AND ADMIN=9"}},
        {"1234", {star + star + star + "CREATOR=9"}},  // the seventh does not count
        {"", {"ALIAS=A", "ALIAS==a", "CREATOR=2 AND ALIAS=a", "ADMIN=1", "ADMIN='1000,1001'"}},
        {"", {"FOO<5", "ALIAS<5", "ALIAS<=a", "ALIAS>=1", "ALIAS>a", "ALIAS=a AND "}}};
    for (const auto& [rows, conditions] : cases) {
        for (const std::string& where : conditions) {
            std::string found = select("SELECT (CREATOR) WHERE " + where);
            for (size_t at; (at = found.find("^\n")) != std::string::npos;) {
                found.erase(at, 2);
            }
            EXPECT_EQ(rows, found) << where;
        }
    }
    EXPECT_EQ("1^a^1^1000^a^\n", select("SELECT (PRIV_ACC,ALIAS,FOO,CREATOR,CREATOR_UID,ALIAS) "
                                        "WHERE CREATOR=1"));
    EXPECT_EQ("\n\n", select("SELECT () WHERE ALIAS=a"));
    EXPECT_EQ("\n", select("SELECT (FOO,ALIASX) WHERE ALIAS=b"));
    EXPECT_EQ("", messages());
}

TEST_F(Matching, NullValueMatchesNothing) {
    load(store(1, "a^x^^^^^\n$"));
    for (const std::string column : {"ALIAS", "CREATOR"}) {
        for (const uint32_t len : {1u, 5u}) {
            SCOPED_TRACE(column + ", " + std::to_string(len) + " bytes at a null pointer");
            const Exact name(column);
            db_parsed_tokens_t columns = {};
            db_parsed_where_set_t where = {{{name.token(), {nullptr, len}, SDB_OP_EQUAL}}, 1};
            db_bytes_t out = {};
            EXPECT_EQ(0, command_handler[SDB_SELECT](&columns, &columns, &where, &out));
            EXPECT_EQ(1u, out.len);
            std::free(out.data);
            EXPECT_EQ(ZELKM_NOTHING_DELETED,
                      Code(command_handler[SDB_DELETE](&columns, &columns, &where, &out)));
        }
    }
}

}  // namespace
