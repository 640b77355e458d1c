// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// No exception leaves the object's methods when memory runs out: in the descriptions of lost calls,
// and in the lists that selections are appended to. One allocation after the other fails.

#include <functional>

#include "remote_keymaster.h"
#include "store_fixture.h"

namespace {

using test::Lines;

class Exceptions : public test::StoreFixture<test::RemoteKeymaster> {
  protected:
    // Calls verify(action's result) after each allocation of the action that fails.
    void forEachAllocation(const std::function<int()>& action,
                           const std::function<void(int)>& verify) {
        for (const bool for_good : {false, true}) {
            bool failed = true;
            for (long nth = 1; failed; ++nth) {
                SCOPED_TRACE("allocation " + std::to_string(nth) + (for_good ? " and later" : ""));
                startAfresh();
                int status = 0;
                test::failAllocation(nth, for_good);
                EXPECT_NO_THROW(status = action());
                failed = test::stopFailing();
                verify(status);
            }
        }
    }
};

TEST_F(Exceptions, LostCallsAreDescribedAsFarAsThereIsMemory) {
    SODOperationParam added;
    std::string alias = "c";
    added.setAlias(alias);
    const struct {
        const char* lost;
        int result;  // with memory
    } cases[] = {{"getKeyCharacteristics", ZELKM_UNKNOWN_ERROR},
                 {"begin", ZELKM_UNKNOWN_ERROR},
                 {"update", ZELKM_MALFORMED_STORE},
                 {"finish", ZELKM_MALFORMED_STORE}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lost);
        bool undescribed = false;
        int last = 0;
        forEachAllocation(
            [&] {
                km_.lost = c.lost;
                return object_->SodInsert(added);
            },
            [&](int status) {
                km_.lost = "";
                // Before the call a key file that finds no memory counts as missing, as ever.
                if (test::readFile("edbk") != files_["edbk"]) {
                    return;
                }
                undescribed |= test::logged("E object: HIDL call failed with (out of memory)");
                last = status;
                EXPECT_TRUE(status == ZELKM_MEMORY_ALLOCATION_FAILED || status == c.result)
                    << test::named(status);
                EXPECT_EQ(files_[kStore], *test::readFile(kStore));
                reopen();
                EXPECT_EQ("a b ", test::readAliases(*object_));
            });
        EXPECT_TRUE(undescribed);
        EXPECT_EQ(c.result, last);
    }
    const test::AllocationsWork now;
    km_.lost = "generateKey";
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, object_->generate_db_key());
}

TEST_F(Exceptions, ListsAreAppendedToWholeOrNotAtAll) {
    // Longer than what strings hold without memory.
    const std::string before(100, 'b');
    ASSERT_EQ(0, test::insertAlias(*object_, std::string(100, 'c')));
    files_[kStore] = *test::readFile(kStore);
    using Select = int (ZelKeymasterOperation::*)(SODOperationParam&, Lines&);
    const struct {
        const char* name;
        Select select;
        size_t rows, none;  // appended, and with an empty result
    } cases[] = {{"SodSelect", &ZelKeymasterOperation::SodSelect, 4, 1},
                 {"SodRetreiveAlias", &ZelKeymasterOperation::SodRetreiveAlias, 3, 0},
                 {"SodRetreiveOther", &ZelKeymasterOperation::SodRetreiveOther, 3, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SODOperationParam p;
        Lines rows;
        forEachAllocation(
            [&] {
                {
                    const test::AllocationsWork preparing;
                    p.clearOutputFormat().addAliasToOutput();
                    rows = {before};
                    EXPECT_EQ(0, object_->SodSelect(p, rows));  // loads key and table
                    rows.resize(1);
                    rows.shrink_to_fit();
                }
                return ((*object_).*c.select)(p, rows);
            },
            [&](int status) {
                EXPECT_TRUE(status == 0 || status == ZELKM_MEMORY_ALLOCATION_FAILED)
                    << test::named(status);
                const bool empty = test::logged("E engine: allocation failure for out");
                const size_t appended = status != 0 ? 0 : empty ? c.none : c.rows;
                EXPECT_EQ(1 + appended, rows.size());
                EXPECT_EQ(before, rows[0]);
            });
        EXPECT_EQ(1 + c.rows, rows.size());
    }
}

}  // namespace
