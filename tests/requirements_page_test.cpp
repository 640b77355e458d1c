// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The table of requirements in docs/keymaster.md is the one that is checked.

#include <gtest/gtest.h>
#include <keymaster_check/keymaster_check.h>

#include <fstream>
#include <string>

TEST(RequirementsPage, HasTheRequirementsThatAreChecked) {
    std::ifstream page(ZELKM_DOCS_DIR "/keymaster.md");
    std::string line;
    while (std::getline(page, line) && line.rfind("| requirement |", 0) != 0) {
    }
    ASSERT_TRUE(std::getline(page, line));  // the rule below the head
    std::string shown;
    while (std::getline(page, line) && line.rfind("| `", 0) == 0) {
        shown += line + "\n";
    }
    std::string checked;
    for (const auto& all :
         {keymaster_check::requirements(), keymaster_check::laterRequirements()}) {
        for (const keymaster_check::Requirement& requirement : all) {
            checked += std::string("| `") + requirement.id + "` | " + requirement.what + " | " +
                       requirement.consequence + " |\n";
        }
    }
    EXPECT_EQ(checked, shown);
}
