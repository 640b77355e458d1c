// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table in memory: what changes leave in it, with and without memory for them, and what they
// wipe.

#include "db_object_table.h"

#include <numeric>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "engine.h"
#include "failing_memory.h"
#include "wiped_memory.h"

namespace {

using namespace test;

class ObjectTable : public test::Engine {};

// A plain list of rows follows random changes, some of which have no memory. Order, duplicates and
// the exported store must agree.
TEST_F(ObjectTable, FollowsAModelThroughChanges) {
    struct ModelRow {
        std::string alias, accessor;
    };
    constexpr const char* kAccessors[] = {"[3..7]", "8,5", "x*,9", "*", "[4..]"};
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
    int without_memory = 0;
    for (int step = 0; step < 2000; ++step) {
        const std::string alias(1, "abcdefg*"[random() % 8]);
        const std::string number(1, "2589"[random() % 4]);
        const std::string by_alias = " WHERE ALIAS=" + alias + " AND ACCESSOR=" + number;
        const std::string by_number = " WHERE ACCESSOR=" + number;
        const unsigned action = random() % 32;
        if (action == 31) {
            handle_ = 0;  // loads the last store again
        } else {
            const std::vector<ModelRow> before = rows;
            std::string change;
            Code expected = 0;
            if (action >= 16) {
                rows.erase(std::remove_if(rows.begin(), rows.end(),
                                          [&](const ModelRow& row) {
                                              return meets(row, action == 16 ? "*" : alias, number);
                                          }),
                           rows.end());
                expected = rows.size() == before.size() ? ZELKM_NOTHING_DELETED : 0;
                change = "DELETE" + (action == 16 ? by_number : by_alias);
            } else {
                rows.push_back({alias, kAccessors[random() % 5]});
                change =
                    "INSERT (ACCESSOR,ALIAS) VALUE ('" + rows.back().accessor + "'," + alias + ")";
            }
            if (step % 2 == 0) {
                failAllocation(1 + long(random() % 7), false);
            }
            const Code status = query(change);
            if (stopFailing() && status == ZELKM_MEMORY_ALLOCATION_FAILED) {
                rows = before;
                ++without_memory;
                // The table is as it was, or dropped.
                handle_ = query("SELECT ()") == ZELKM_STALE_TABLE_HANDLE ? 0 : handle_;
            } else {
                ASSERT_EQ(expected, status) << change;
                if (status == 0) {
                    ASSERT_EQ(store(static_cast<uint32_t>(rows.size()), text("*", "*") + "$"),
                              result_);
                    blob_ = result_;
                }
            }
        }
        ASSERT_EQ(text(alias, number), select(test::kSelectAll + by_alias));
        ASSERT_EQ(text("*", number), select(test::kSelectAll + by_number));
        ASSERT_EQ(text("*", "*"), select(test::kSelectAll));
    }
    EXPECT_LT(100, without_memory);
}

TEST_F(ObjectTable, DeleteWithoutConditionsAndInsertWithTwoValues) {
    load(store(2, "a^^^^^^\nb^^^^^^\n$"));
    ASSERT_EQ(0, query("DELETEWHERE ALIAS=a"));
    EXPECT_EQ(store(0, "$"), result_);
    ASSERT_EQ(0, query("INSERT (ALIAS,CREATOR,ALIAS) VALUE (first,' x,y ',second)"));
    EXPECT_EQ(store(1, "second^ x,y ^^^^^\n$"), result_);
    EXPECT_EQ("second^\n", select("SELECT (ALIAS) WHERE PRIV_ACC=*"));  // even an absent value
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ADMIN=*"));              // but not an absent list
}

TEST_F(ObjectTable, UpdateThroughItsHandler) {
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
        EXPECT_EQ(rows != nullptr ? 0 : ZELKM_SYNTAX_ERROR, update(columns, values, where));
        EXPECT_EQ(rows != nullptr ? store(2, rows + std::string("$")) : "", result_);
        EXPECT_EQ(rows != nullptr ? rows : kRows, select(test::kSelectAll));
    }
    ASSERT_EQ(0, update("ALIAS", "b2", "ALIAS=b"));
    EXPECT_EQ("b2^\n", select("SELECT (ALIAS) WHERE ALIAS=b2"));
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ALIAS=b"));
    // Without memory for the second row the first one stays changed, and the second has no alias.
    failAllocation(2, false);
    EXPECT_EQ(ZELKM_MEMORY_ALLOCATION_FAILED, update("ALIAS", "c", ""));
    EXPECT_TRUE(stopFailing());
    EXPECT_EQ("c^\n", select("SELECT (ALIAS) WHERE ALIAS=c"));
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ALIAS=a"));
    EXPECT_EQ("", select("SELECT (ALIAS) WHERE ALIAS=b2"));
    EXPECT_EQ("c^\n^\n", select("SELECT (ALIAS)"));
}

TEST_F(ObjectTable, SaysWhereMemoryRanOut) {
    // What an operation says, with its result, while its allocations fail: each in turn, and all
    // from each on.
    const auto report = [this](const std::string& name, auto operation) {
        std::set<std::string> said;
        for (const bool for_good : {false, true}) {
            failEachAllocation(
                for_good, [this] { EXPECT_EQ("a^^^^^^\n", load(store(1, "a^^^^^^\n$"))); },
                operation,
                [&said](int status, bool) {
                    said.insert(messages() + "returns " + named(status) + "\n");
                });
        }
        expectReported(name + " without memory",
                       std::accumulate(said.begin(), said.end(), std::string()));
    };
    report("load and insert", [this] {
        handle_ = 0;
        return query("INSERT (ALIAS) (b)");
    });
    for (const std::string where : {"", " WHERE ALIAS=a", " WHERE CREATOR=*"}) {
        // A delete needs no memory before its export, and a select none but for its result.
        report("DELETE" + where, [&] { return query("DELETE" + where); });
        report("SELECT (ALIAS)" + where, [&] {
            const int status = query("SELECT (ALIAS)" + where);
            EXPECT_TRUE(result_.empty() || result_ == raw("a^\n$"));  // all or nothing
            return status;
        });
    }
    report("update", [this] { return update("ADMIN", "x", "ALIAS=a"); });
}

// What leaves the table is wiped: values, the text made of them, and the copy of a command.
TEST_F(ObjectTable, WipesWhatItReleases) {
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

TEST_F(ObjectTable, RefusesColumnsThatHoldNoBytes) {
    uint32_t& flags = column_schema[2].flags;
    const uint32_t before = std::exchange(flags, SDB_ATTR_ENUMERATED);
    EXPECT_EQ(ZELKM_UNSUPPORTED_COLUMN_TYPE, query("INSERT (ADMIN) VALUE (x)"));
    EXPECT_EQ("not supported type\n" + refusedBy("INSERT", ZELKM_UNSUPPORTED_COLUMN_TYPE),
              messages());
    EXPECT_EQ("not supported type\n" + notLoaded(ZELKM_UNSUPPORTED_COLUMN_TYPE),
              load(store(1, "a^^^^^^\n$")));
    flags = before;
}

}  // namespace
