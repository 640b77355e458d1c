// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Queries from text to result: matching, handlers, handles, the encryption callback, and every
// message. The program is linked so that the library's calls of malloc, calloc, realloc, RAND_bytes
// and OPENSSL_cleanse arrive here first.

#include <cstring>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "db_command_parser.h"
#include "db_rows.h"
#include "engine.h"
#include "wiped_memory.h"

namespace {

using namespace test;
using Lines = std::vector<std::string>;

long g_allocations_left = -1;  // the one after these fails; negative: none does
bool g_no_memory;              // every allocation fails
int g_random_failures;         // draws that fail or give 0, in turn

bool allocationFails() {
    return g_no_memory || (g_allocations_left >= 0 && g_allocations_left-- == 0);
}

}  // namespace

extern "C" {

void* __real_malloc(size_t len);
void* __real_calloc(size_t count, size_t len);
void* __real_realloc(void* old, size_t len);
int __real_RAND_bytes(unsigned char* to, int len);

void* __wrap_malloc(size_t len) {
    return allocationFails() ? nullptr : __real_malloc(len);
}
void* __wrap_calloc(size_t count, size_t len) {
    return allocationFails() ? nullptr : __real_calloc(count, len);
}
void* __wrap_realloc(void* old, size_t len) {
    return allocationFails() ? nullptr : __real_realloc(old, len);
}
int __wrap_RAND_bytes(unsigned char* to, int len) {
    if (g_random_failures == 0) {
        return __real_RAND_bytes(to, len);
    }
    const bool fails = --g_random_failures % 2 != 0;
    std::memset(to, fails ? 0x5A : 0, static_cast<size_t>(len));
    return fails ? 0 : 1;
}

}  // extern "C"

namespace {

// ---- Matching -----------------------------------------------------------------------------------

bool matches(const std::string& pattern, const std::string& subject, uint32_t use_pattern,
             decltype(simple_reg_cmp)* compare = simple_reg_cmp) {
    const Exact p(pattern);
    const Exact s(subject);
    return compare(p.data(), p.len(), s.data(), s.len(), use_pattern) != 0;
}

struct MatchCase {
    const char* pattern;
    Lines matching;
    Lines others;
};

TEST(Matching, ComparesWithPatternsAndEachItemOfAList) {
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

// ---- Commands -----------------------------------------------------------------------------------

class Query : public test::Engine {
  protected:
    ~Query() override { sdb_register_db_encrypt_fp(nullptr, nullptr); }

    // UPDATE, which only direct callers reach.
    int update(const std::string& columns, const std::string& values, const std::string& where) {
        const Exact texts[] = {Exact(columns), Exact(values), Exact(where)};
        const db_token_t tokens[] = {texts[0].token(), texts[1].token(), texts[2].token()};
        db_parsed_tokens_t parsed[2];
        db_parsed_where_set_t conditions;
        zelkm::TokenizerError error;
        EXPECT_EQ(0, zelkm::parse_tokens(&tokens[0], &parsed[0], &error));
        EXPECT_EQ(0, zelkm::parse_tokens(&tokens[1], &parsed[1], &error));
        EXPECT_EQ(0, zelkm::parseWhereSet(&tokens[2], &conditions, &error));
        db_bytes_t out = {};
        const int status = command_handler[SDB_UPDATE](&parsed[0], &parsed[1], &conditions, &out);
        EXPECT_EQ(status == 0, out.data != nullptr);
        result_.assign(out.data, out.data + out.len);
        std::free(out.data);
        return status;
    }
};

TEST_F(Query, SelectsRowsThatSatisfyAllConditions) {
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

// Random changes, each compared with a plain list of rows: order, duplicates, the exported store.
TEST_F(Query, FollowsAModelThroughChanges) {
    struct ModelRow {
        std::string alias, accessor;
    };
    constexpr const char* kAccessors[] = {"[3..7]", "8,5", "x*,9", "*"};
    std::mt19937 random(20261121);
    std::vector<ModelRow> rows;
    const auto meets = [](const ModelRow& row, const std::string& alias,
                          const std::string& number) {
        return (alias == "*" || alias == row.alias) &&
               matches(row.accessor, number, 4, enumerated_simple_reg_cmp);
    };
    const auto text = [&](const std::string& alias, const std::string& number) {
        std::string all;
        for (const ModelRow& row : rows) {
            all += meets(row, alias, number) ? row.alias + "^^^" + row.accessor + "^^^\n" : "";
        }
        return all;
    };
    for (int step = 0; step < 1000; ++step) {
        const std::string alias(1, "abcdefg*"[random() % 8]);
        const std::string number(1, "2589"[random() % 4]);
        const std::string by_alias = " WHERE ALIAS=" + alias + " AND ACCESSOR=" + number;
        const std::string by_number = " WHERE ACCESSOR=" + number;
        const unsigned action = random() % 8;
        if (action == 7) {
            handle_ = 0;  // loads the last store again
        } else if (action >= 4) {
            const auto end = std::remove_if(rows.begin(), rows.end(), [&](const ModelRow& row) {
                return meets(row, action == 4 ? "*" : alias, number);
            });
            const int expected = end == rows.end() ? -917 : 0;
            rows.erase(end, rows.end());
            ASSERT_EQ(expected, query("DELETE" + (action == 4 ? by_number : by_alias)));
        } else {
            rows.push_back({alias, kAccessors[random() % 4]});
            ASSERT_EQ(0, query("INSERT (ACCESSOR,ALIAS) VALUE ('" + rows.back().accessor + "'," +
                               alias + ")"));
        }
        if (action < 7 && !result_.empty()) {
            ASSERT_EQ(store(static_cast<uint32_t>(rows.size()), text("*", "*") + "$"), result_);
            blob_ = result_;
        }
        ASSERT_EQ(text(alias, number), select(test::kSelectAll + by_alias));
        ASSERT_EQ(text("*", number), select(test::kSelectAll + by_number));
        ASSERT_EQ(text("*", "*"), select(test::kSelectAll));
    }
}

TEST_F(Query, DeleteWithoutConditionsAndInsertWithTwoValues) {
    load(store(2, "a^^^^^^\nb^^^^^^\n$"));
    ASSERT_EQ(0, query("DELETEWHERE ALIAS=a"));
    EXPECT_EQ(store(0, "$"), result_);
    ASSERT_EQ(0, query("INSERT (ALIAS,CREATOR,ALIAS) VALUE (first,' x,y ',second)"));
    EXPECT_EQ(store(1, "second^ x,y ^^^^^\n$"), result_);
    EXPECT_EQ("second^\n", select("SELECT (ALIAS) WHERE PRIV_ACC=*"));  // even an absent value
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ADMIN=*"));              // but not an absent list
}

TEST_F(Query, UpdateThroughItsHandler) {
    const char kRows[] = "a^x^^^10^^\nb^x^^^20^^\n";
    const char* const cases[][4] = {
        {"CREATOR", "longer", "ALIAS=b", "a^x^^^10^^\nb^longer^^^20^^\n"},
        {"CREATOR_UID", "5", "", "a^x^^^5^^\nb^x^^^5^^\n"},  // the last name that it begins with
        {"ALIASX,PRIV_ACC", "c,1", "ALIAS=a", "c^x^^^10^1^\nb^x^^^20^^\n"},
        {"FOO,ALIA,ADMIN", "1,2,3", "ALIAS=a", "a^x^3^^10^^\nb^x^^^20^^\n"},
        {"ALIAS", "z", "ALIAS=zz", kRows},
        {"", "", "", nullptr},
        {"ALIAS,CREATOR", "z", "", nullptr}};
    for (const auto& [columns, values, where, rows] : cases) {
        SCOPED_TRACE(columns);
        load(store(2, std::string(kRows) + "$"));
        EXPECT_EQ(rows != nullptr ? 0 : -911, update(columns, values, where));
        EXPECT_EQ(rows != nullptr ? store(2, rows + std::string("$")) : "", result_);
        EXPECT_EQ(rows != nullptr ? rows : kRows, select(test::kSelectAll));
    }
    ASSERT_EQ(0, update("ALIAS", "b2", "ALIAS=b"));
    EXPECT_EQ("b2^\n", select("SELECT (ALIAS) WHERE ALIAS=b2"));
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ALIAS=b"));
}

// ---- Messages -----------------------------------------------------------------------------------

TEST_F(Query, RefusalsSayWhyAndChangeNothing) {
    const std::string parsed = "parse_command error -911\n";
    const std::string list = "parse_tokens error(-911)\nexecute_command error -911\n";
    const std::string where = "parse_where_set_token error(-911)\nexecute_command error -911\n";
    const auto at = [](int state, char byte, int len) {
        return "err: state:(" + std::to_string(state) + ")  t->token=ADDR, *p(ADDR)=" + byte +
               ", len=" + std::to_string(len) + "\n\n";
    };
    const std::pair<std::string, Lines> cases[] = {
        {"command parsing error\n" + parsed, {"S", "select (ALIAS)"}},
        {"column parsing error\n" + parsed, {"SELECT ALIAS)", "INSERT (ALIAS"}},
        {"value parsing error\n" + parsed,
         {"INSERT (ALIAS) VALUE (a) ", "UPDATE (ADMIN) VALUE (x) WHERE ALIAS=a"}},
        {"UPDATE needs WHERE statement\n" + parsed, {"UPDATE (ADMIN) VALUE (x)"}},
        {at(1, ',', 0) + list, {"SELECT (,)"}},
        {at(4, 'x', 2) + list, {"SELECT ('ab'x)"}},
        {at(5, '\x1F', 2) + list, {"INSERT (ALIAS) VALUE (ab'c)"}},
        {list, {"SELECT (a,b,c,d,e,f,g)", "INSERT (ALIAS) VALUE (a,b,c,d,e,f,g)"}},
        {at(2, '\x1F', 0) + where, {"DELETE WHERE ALIAS=''"}},
        {at(3, ' ', 2) + where, {"DELETE WHERE ALIAS='ab"}},
        {where, {"DELETE WHERE ALIAS", "DELETE WHERE ALIAS=", "DELETE WHERE ALIAS=a,b"}},
        {"INSERT error(-911)\nexecute_command error -911\n",
         {"INSERT () VALUE ()", "INSERT (ALIAS,CREATOR) VALUE (a)", "INSERT (ALIAS) VALUE ()"}},
        {"invalid column name\nINSERT error(-910)\nexecute_command error -910\n",
         {"INSERT (ALIAS,ALIA) VALUE (a,b)", "INSERT (CREATOR_UIDS) VALUE (a)"}},
        {"DELETE error(-917)\nexecute_command error -917\n", {"DELETE WHERE ALIAS=b"}}};
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    for (const auto& [expected, commands] : cases) {
        for (const std::string& command : commands) {
            EXPECT_EQ(expected, messages(query(command))) << command;
            EXPECT_EQ("a^^^^^^\n", select(test::kSelectAll)) << command;
        }
    }
}

TEST_F(Query, DumpsCommandsAndUnknownColumnsAtDebugLevel) {
    const auto dumped = [this](const std::string& command) {
        test::clearLog();
        static_cast<void>(query(command));
        std::string all;
        for (const std::string& line : test::log()) {
            all += line.substr(0, line.find(" : L")) + "\n";  // the source line varies
        }
        return all;
    };
    EXPECT_EQ("D engine: command(13)\nD engine: SELECT (A\nD engine: B)\nD engine: \n",
              dumped("SELECT (A\nB)\n"));
    EXPECT_EQ(
        "D engine: command(22)\nD engine: INSERT (FOO) VALUE (x)\n"
        "E engine: invalid column name\nD engine: invalid column name(3)\nD engine: FOO\n"
        "E engine: INSERT error(-910)\nE engine: execute_command error -910\n",
        dumped("INSERT (FOO) VALUE (x)"));
    const std::string longer = "SELECT (" + std::string(2000, 'x') + ")";
    EXPECT_EQ("D engine: command(2009)\nD engine: " + longer.substr(0, 1023) + "\n",
              dumped(longer));
}

TEST_F(Query, SaysWhereMemoryRanOut) {
    // What an operation says while one after the other of its allocations fails.
    const auto said = [this](auto operation) {
        std::set<std::string> all;
        bool failed = true;
        for (long nth = 0; failed; ++nth) {
            EXPECT_EQ("a^^^^^^\n", load(store(1, "a^^^^^^\n$")));
            g_allocations_left = nth;
            const int status = operation();
            failed = g_allocations_left < 0;
            g_allocations_left = -1;
            const std::string text = messages();
            EXPECT_EQ(text.empty() ? 0 : -41, status);
            all.insert(text);
        }
        return all;
    };
    const std::string insert = "INSERT error(-41)\nexecute_command error -41\n";
    const std::string remove = "DELETE error(-41)\nexecute_command error -41\n";
    const std::string loading = "convert_to_internal error -41\n";
    const std::string output = "allocation failure for out\n";
    const std::string exporting = output + "export sdb fail, clear db to sync again\n";
    const std::string value = "create colume value failure\n";
    using Texts = std::set<std::string>;
    // Before its export a delete needs no memory.
    EXPECT_EQ((Texts{"", "allocation failure\n" + loading, value + loading, value + insert,
                     exporting + insert}),
              said([this] {
                  handle_ = 0;
                  return query("INSERT (ALIAS) (b)");
              }));
    EXPECT_EQ((Texts{"", exporting + remove}),
              said([this] { return query("DELETE WHERE ALIAS=a"); }));
    EXPECT_EQ((Texts{"", "allocation fail during update\n", exporting}),
              said([this] { return update("ADMIN", "x", "ALIAS=a"); }));
}

TEST_F(Query, SelectsAndDeletesWithoutAnyMemory) {
    for (const std::string where : {" WHERE ALIAS=a", " WHERE CREATOR=x", ""}) {
        for (const bool warm : {false, true}) {
            load(store(2, "a^x^^^^^\nb^^^^^^\n$"));
            if (warm) {  // with the index and the text made
                ASSERT_EQ(0, query("INSERT (ALIAS) (c)"));
                select("SELECT () WHERE ALIAS=c");
            }
            test::clearLog();
            g_no_memory = true;
            const int selected = query("SELECT (ALIAS)" + where);
            const bool nothing = result_.empty();
            const std::string said = messages();
            const int removed = query("DELETE" + where);
            g_no_memory = false;
            EXPECT_EQ(0, selected);
            EXPECT_TRUE(nothing);
            EXPECT_EQ("allocation failure for out\n", said);
            EXPECT_EQ(-41, removed);
            EXPECT_EQ(
                "allocation failure for out\nexport sdb fail, clear db to sync again\n"
                "DELETE error(-41)\nexecute_command error -41\n",
                messages());
            EXPECT_EQ(-914, query("SELECT (ALIAS)"));
        }
    }
}

TEST_F(Query, NullValueMatchesNothing) {
    load(store(1, "a^x^^^^^\n$"));
    for (const std::string column : {"ALIAS", "CREATOR"}) {
        for (const uint32_t len : {1u, 5u}) {
            const Exact name(column);
            db_parsed_tokens_t columns = {};
            db_parsed_where_set_t where = {{{name.token(), {nullptr, len}, SDB_OP_EQUAL}}, 1};
            db_bytes_t out = {};
            EXPECT_EQ(0, command_handler[SDB_SELECT](&columns, &columns, &where, &out));
            EXPECT_EQ(1u, out.len);
            std::free(out.data);
            EXPECT_EQ(-917, command_handler[SDB_DELETE](&columns, &columns, &where, &out));
        }
    }
}

// What leaves the table is wiped: values, the text made of them, and the copy of a command.
TEST_F(Query, WipesWhatItReleases) {
    const auto change = [this](const std::string& command) {
        g_wiped.clear();
        ASSERT_EQ(0, query(command));
        EXPECT_TRUE(wiped(command));
    };
    load(store(2, "first^x^^^^^\nsecond^^^^^^\n$"));
    change("INSERT (ALIAS) VALUE (third)");
    EXPECT_FALSE(wiped("third"));
    const std::string text = raw("first^x^^^^^\nsecond^^^^^^\nthird^^^^^^\n");
    change("INSERT (ALIAS) VALUE (" + std::string(100, 'f') + ")");
    EXPECT_TRUE(wiped(text));  // grown, it lies elsewhere
    change("DELETE WHERE ALIAS=second");
    EXPECT_TRUE(wiped("second"));
    EXPECT_FALSE(wiped("first"));
    change("DELETE WHERE ALIAS=" + std::string(100, 'f'));
    EXPECT_TRUE(wiped(raw(std::string(100, 'f') + "^^^^^^\n")));
    handle_ = 0;
    blob_.clear();
    change("SELECT ()");
    for (const char* gone : {"first", "x", "third", "first^x^^^^^\nthird^^^^^^\n"}) {
        EXPECT_TRUE(wiped(raw(gone))) << gone;
    }
    load(store(1, "old^^^^^^\n$"));
    g_wiped.clear();
    EXPECT_EQ(0, update("ALIAS", "new", ""));
    EXPECT_TRUE(wiped("old"));
}

// Tables whose index and text are there already, of every size up to nine rows, where one or the
// other has to grow: what a change did is what the next commands see.
TEST_F(Query, ChangesOfAWarmTableWithoutMemory) {
    const std::pair<const char*, const char*> changes[] = {{"INSERT (ALIAS) (b)", "b"},
                                                           {"DELETE WHERE ALIAS=a", "-a"},
                                                           {"DELETE WHERE CREATOR=x", "-x"}};
    for (const auto& [command, change] : changes) {
        for (uint32_t more = 0; more < 8; ++more) {
            bool failed = true;
            for (long nth = 0; failed; ++nth) {
                SCOPED_TRACE(std::string(command) + " " + std::to_string(more) + " " +
                             std::to_string(nth));
                load(store(2, "x^x^^^^^\na^^^^^^\n$"));
                if (more % 2 == 0 || change[0] != '-') {
                    EXPECT_EQ("a^\n", select("SELECT (ALIAS) WHERE ALIAS=a"));  // makes the index
                }
                std::string rows = "x^x^^^^^\na^^^^^^\n";
                for (uint32_t i = 0; i < more; ++i) {
                    EXPECT_EQ(0, query("INSERT (ALIAS) (r)"));
                    rows += "r^^^^^^\n";
                }
                std::string after = rows + "b^^^^^^\n";
                if (change[0] == '-') {
                    const std::string gone =
                        change[1] == 'a' ? "a^^^^^^\n" : rows.substr(0, rows.find('a'));
                    after = rows;
                    after.erase(after.find(gone), gone.size());
                }
                g_allocations_left = nth;
                const int status = query(command);
                failed = g_allocations_left < 0;
                g_allocations_left = -1;
                if (status == 0) {
                    EXPECT_EQ(
                        store(uint32_t(std::count(after.begin(), after.end(), '\n')), after + "$"),
                        result_);
                    for (const char* alias : {"a", "b", "r", "x"}) {
                        std::string expected;
                        for (size_t at = 0; (at = after.find('\n', at)) != std::string::npos;
                             ++at) {
                            const size_t start = after.rfind('\n', at - 1) + 1;
                            expected += after[start] == *alias ? std::string(alias) + "^\n" : "";
                        }
                        EXPECT_EQ(expected,
                                  select("SELECT (ALIAS) WHERE ALIAS=" + std::string(alias)));
                    }
                } else if (query(test::kSelectAll) != -914) {
                    EXPECT_EQ(rows, readable(result_.substr(0, result_.size() - 1)));
                }
                messages();
            }
        }
    }
}

TEST_F(Query, RefusesColumnsThatHoldNoBytes) {
    uint32_t& flags = column_schema[2].flags;
    const uint32_t before = std::exchange(flags, SDB_ATTR_ENUMERATED);
    EXPECT_EQ(-100, query("INSERT (ADMIN) VALUE (x)"));
    EXPECT_EQ("not supported type\nINSERT error(-100)\nexecute_command error -100\n", messages());
    EXPECT_EQ("not supported type\nconvert_to_internal error -100\n", load(store(1, "a^^^^^^\n$")));
    flags = before;
}

// ---- Entry point --------------------------------------------------------------------------------

TEST_F(Query, NeedsCommandAndHandle) {
    unsigned char* out = nullptr;
    unsigned int len = 4711;
    EXPECT_EQ(-38, sdb_query(nullptr, 6, nullptr, 0, &out, &len, &handle_));
    EXPECT_EQ(-38, sdb_query("DELETE", 0, nullptr, 0, &out, &len, &handle_));
    EXPECT_EQ(-38, sdb_query("DELETE", 6, nullptr, 0, &out, &len, nullptr));
    const std::string message = "command or len is null\n";
    EXPECT_EQ(message + message + message, messages());
    // Without a place for it the result is released.
    EXPECT_EQ(0, sdb_query("SELECT (ALIAS)", 14, nullptr, 0, nullptr, &len, &handle_));
    EXPECT_EQ(0, sdb_query("SELECT (ALIAS)", 14, nullptr, 0, &out, nullptr, &handle_));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(4711u, len);
}

TEST_F(Query, HandlesNameTheTableThatWasLoadedLast) {
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    blob_ = result_;
    const uint64_t first = handle_;
    EXPECT_EQ("a^\n", select("SELECT (ALIAS)"));
    handle_ = 0;
    EXPECT_EQ(-911, query("SELECT"));  // the table is loaded even if the command is refused
    const uint64_t second = handle_;
    EXPECT_NE(0u, second);
    EXPECT_NE(first, second);
    handle_ = first;
    EXPECT_EQ(-914, query("SELECT (ALIAS)"));
    EXPECT_EQ(first, handle_);
    handle_ = second;
    blob_ = "not looked at";
    EXPECT_EQ("a^\n", select("SELECT (ALIAS)"));
    handle_ = 0;
    blob_ = "";
    EXPECT_EQ("", select("SELECT (ALIAS)"));  // no store: an empty table
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (b)"));
    EXPECT_EQ(store(1, "b^^^^^^\n$"), result_);
}

TEST_F(Query, DrawsHandlesUpToTenTimes) {
    std::string expected;
    for (int failures = 1; failures <= 10; ++failures) {
        expected += "fail to generate db handle: ADDR\n";
        g_random_failures = failures;
        handle_ = 0;
        EXPECT_EQ(0, query("SELECT (ALIAS)"));
        EXPECT_EQ(failures == 10, handle_ == 0);
        EXPECT_EQ(expected, messages());
    }
}

// ---- Encryption ---------------------------------------------------------------------------------

constexpr char kNonceAndTag[] = "tagTAGtagTAGtag!ivIVivIVivIV";

// A callback that checks what it is given and flips bits.
struct Cipher {
    int status = 0;
    std::string calls;          // mode, length, associated data
    const void* own = nullptr;  // the engine's buffer
    size_t own_len = 0;

    static int convert(void* ctx, unsigned mode, unsigned char* plain, unsigned char* cipher,
                       unsigned len, unsigned char* iv, unsigned char* tag, unsigned char* aad,
                       unsigned aad_len) {
        Cipher* self = static_cast<Cipher*>(ctx);
        self->calls += std::to_string(mode) + " " + std::to_string(len) + " " +
                       std::string(aad, aad + aad_len) + "\n";
        unsigned char* header = cipher - 52;
        EXPECT_EQ(header + 16, tag);
        EXPECT_EQ(header + 32, iv);
        EXPECT_EQ(mode == 1 ? std::string(28, '\0') : kNonceAndTag, std::string(tag, tag + 28));
        if (mode == 1) {
            EXPECT_EQ(cipher, plain);
            std::memcpy(tag, kNonceAndTag, 28);
        } else {
            EXPECT_EQ(header, aad);
            EXPECT_TRUE(plain + len <= header || plain >= cipher + len);
        }
        self->own = mode == 1 ? header : plain;
        self->own_len = mode == 1 ? len + 52 : len;
        for (unsigned i = 0; i < len; ++i) {
            plain[i] = static_cast<unsigned char>(cipher[i] ^ 0x55);
        }
        return self->status;
    }

    bool ownWasWiped() const {
        return std::any_of(g_wiped.begin(), g_wiped.end(), [this](const auto& wipe) {
            return wipe.first == own && wipe.second.size() == own_len;
        });
    }
};

// A store of one row as Cipher makes it.
std::string encrypted(const std::string& row, const std::string& magic = "SOBv1.1     ") {
    std::string blob = store(1, row + "$", magic, 1).replace(16, 28, kNonceAndTag);
    for (size_t i = 52; i < blob.size(); ++i) {
        blob[i] = static_cast<char>(blob[i] ^ 0x55);
    }
    return blob;
}

TEST_F(Query, EncryptsInPlaceAndDecryptsIntoAnotherBuffer) {
    Cipher cipher;
    sdb_register_db_encrypt_fp(&cipher, Cipher::convert);
    ASSERT_EQ(0, query("INSERT (ALIAS) VALUE (a)"));
    EXPECT_EQ(encrypted("a^^^^^^\n"), result_);
    EXPECT_EQ("a^^^^^^\n", load(result_));
    EXPECT_TRUE(cipher.ownWasWiped());
    EXPECT_EQ("b^^^^^^\n", load(encrypted("b||||||\n", "SOBv1.0     ")));
    ASSERT_EQ(0, query("DELETE"));
    EXPECT_EQ("1 9 SOBv1.1     \n0 9 SOBv1.1     \n0 9 SOBv1.0     \n1 1 SOBv1.1     \n",
              cipher.calls);
    cipher.calls.clear();
    EXPECT_EQ("c^^^^^^\n", load(store(1, "c^^^^^^\n$", "SOBv1.1     ", 0xFFFFFFFE)));
    EXPECT_EQ("db size error\nconvert_to_internal error -913\n",
              load(encrypted("a^^^^^^\n").substr(0, 52)));
    EXPECT_EQ("", cipher.calls);
}

TEST_F(Query, FailedEncryptionDropsTheTableFailedDecryptionLeavesIt) {
    Cipher cipher;
    cipher.status = 5;  // positive ones are failures, too
    const std::pair<const char*, const char*> cases[] = {
        {"INSERT (ALIAS) (b)", "INSERT error(5)\nexecute_command error 5\n"},
        {"DELETE", "DELETE error(5)\nexecute_command error 5\n"},
        {"UPDATE", ""}};
    for (const auto& [command, more] : cases) {
        EXPECT_EQ("a^^^^^^\n", load(store(1, "a^^^^^^\n$")));
        sdb_register_db_encrypt_fp(&cipher, Cipher::convert);
        EXPECT_EQ(5, command[0] == 'U' ? update("ALIAS", "b", "") : query(command));
        EXPECT_EQ(std::string("export sdb fail, clear db to sync again\n") + more, messages());
        EXPECT_TRUE(cipher.ownWasWiped());
        EXPECT_EQ(-914, query("SELECT (ALIAS)"));
        EXPECT_EQ("", messages());
    }
    // A failed decryption leaves the table.
    EXPECT_EQ("old^^^^^^\n", load(store(1, "old^^^^^^\n$")));
    const uint64_t old = handle_;
    EXPECT_EQ("convert_to_internal error 5\n", load(encrypted("a^^^^^^\n")));
    EXPECT_TRUE(cipher.ownWasWiped());
    cipher.calls.clear();
    g_allocations_left = 0;
    EXPECT_EQ("allocation failure\nconvert_to_internal error -41\n", load(encrypted("a^^^^^^\n")));
    EXPECT_EQ("", cipher.calls);
    handle_ = old;
    EXPECT_EQ("old^^^^^^\n", select(test::kSelectAll));
}

}  // namespace
