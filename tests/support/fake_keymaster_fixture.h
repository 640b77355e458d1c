// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// An operation object over a fake keymaster, in an empty directory. What it makes of the
// keymaster's answers is in tests/data/answers.txt (see kept_reports.h).

#pragma once

#include "fake_keymaster.h"
#include "kept_reports.h"
#include "operation_peer.h"
#include "results.h"

namespace test {

class OverFakeKeymaster : public InTempDir {
  protected:
    FakeKeymaster km;
    const ObjectPtr object = makeObject(&km, false);
    ObjectPeer peer{*object};
    const ObjectPtr alone = makeObject(nullptr, false);  // an object without a keymaster

    // Holds a case to its report: the result, the log, the calls that were made, and what is said
    // about the state after it.
    void expectReported(const std::string& name, int result,
                        const std::vector<std::pair<const char*, std::string>>& state) const {
        static const KeptReports kept(ZELKM_TEST_DATA_DIR "/answers.txt");
        const ::testing::TestInfo* const test =
            ::testing::UnitTest::GetInstance()->current_test_info();
        kept.expect(test->test_suite_name() + std::string(", ") + name,
                    outcome(result, state, km.calls));
    }
};

}  // namespace test
