// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Descriptions of secure object operations, the command texts made of them, and the splitter.

#include "sod_operation_param.h"

#include <utility>

#include "engine.h"
#include "wiped_memory.h"

namespace {

using test::Lines;

// The five lists of a description in the readable form. Leaves the description empty.
std::string lists(SODOperationParam& param) {
    std::string all;
    for (const Lines& list :
         {param.getColumnList(), param.getDataList(), param.getWhereColumnList(),
          param.getWhereValueList(), param.getOutputFormat()}) {
        for (const std::string& item : list) {
            all += test::readable(item) + " ";
        }
        all += "/";
    }
    EXPECT_EQ(&param, &param.clear());
    return all;
}

TEST(OperationParam, CollectsWhatEachOperationSays) {
    SODOperationParam p;
    std::string a = "a";
    std::string b = "b";
    std::string x = "X";
    EXPECT_EQ("CREATOR X /'a' b ////", lists(p.setCreator(a).setColumn(x, a).setColumn(x, b)));
    EXPECT_EQ("CREATOR ALIAS /'b' 'a' ////", lists(p.setCreator(a).setAlias(a).setCreator(b)));
    EXPECT_EQ("ADMIN ACCESSOR CREATOR_UID /'a' 'b' 'a' ////",
              lists(p.setAdmin(a).setAccessor(b).setCreatorUid(a)));
    EXPECT_EQ("PRIV_ACC /1 ////", lists(p.setPrivilegedAccess(true).setPrivilegedAccess(false)));
    EXPECT_EQ("/////", lists(p.setPrivilegedAccess(false).addPrivilegedAccessWhere(false)));
    EXPECT_EQ("//X ALIAS /'b' 'a' //", lists(p.addWhere(x, a).addAliasInWhere(a).addWhere(x, b)));
    EXPECT_EQ("//CREATOR ADMIN /'a' 'b' //", lists(p.addCreatorInWhere(a).addAdminInWhere(b)));
    EXPECT_EQ("//ACCESSOR CREATOR_UID PRIV_ACC /'a' 'b' '1' //",
              lists(p.addAccessorInWhere(a)
                        .addCreatorUidInWhere(b)
                        .addPrivilegedAccessWhere(true)
                        .addPrivilegedAccessWhere(false)));
    EXPECT_EQ("////CREATOR_UID ALIAS X CREATOR /", lists(p.addCreatorUidToOutput()
                                                             .addAliasToOutput()
                                                             .addOutputFormat(x)
                                                             .addCreatorUidToOutput()
                                                             .addCreatorToOutput()));
    EXPECT_EQ("////PRIV_ACC ACCESSOR ADMIN /",
              lists(p.addPrivilegedAccessToOutput().addAccessorToOutput().addAdminToOutput()));
    EXPECT_EQ("ALIAS /'a' /ALIAS /'a' //",
              lists(p.addAliasToOutput().setAlias(a).addAliasInWhere(a).clearOutputFormat()));
}

TEST(OperationParam, FillsValueListsThatACallerHasShortened) {
    SODOperationParam p;
    std::string a = "a";
    std::string b = "b";
    p.setAlias(a).setCreator(a).addAliasInWhere(a).addCreatorInWhere(a);
    p.getDataList().clear();
    p.getWhereValueList().resize(1);
    EXPECT_EQ("ALIAS CREATOR / 'b' /ALIAS CREATOR /'a' 'b' //",
              lists(p.setCreator(b).addCreatorInWhere(b)));
}

// Whether they lie in the string itself or in a block of the heap.
TEST(OperationParam, WipesTheValuesThatItLetsGoOf) {
    for (const size_t len : {size_t{12}, size_t{300}}) {
        test::g_wiped.clear();
        SODOperationParam p;
        std::string values[] = {std::string(len, 'r'), std::string(len, 'c'),
                                std::string(len, 'w')};
        p.setAlias(values[0]).setAlias(values[1]).addAliasInWhere(values[2]);
        for (const std::string& value : values) {
            EXPECT_EQ(&value == values, test::wipedWithin(value)) << value;
        }
        p.clear();
        EXPECT_TRUE(test::wipedWithin(values[1]) && test::wipedWithin(values[2]));
    }
}

TEST(OperationParam, SplitsStringsAtASeparator) {
    const std::pair<const char*, Lines> cases[] = {
        {"", {""}}, {"a|b", {"a", "b"}}, {"a|b|", {"a", "b"}}, {"|", {""}}, {"a||", {"a", ""}}};
    for (const auto& [text, pieces] : cases) {
        std::string in = text;
        Lines out = {"before"};
        getTokensFromString(out, in, '|');
        EXPECT_EQ("before", out[0]);
        EXPECT_EQ(pieces, Lines(out.begin() + 1, out.end())) << text;
    }
}

}  // namespace
