// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Reports that are compared, word for word, with those of a file in tests/data. There, each stands
// after a line "== NAME". A report that no test asks for is a failure as well, unless only some
// tests run. To write such a file anew, name an empty one in ZELKM_WRITE_REPORTS, run the test, and
// read the difference.

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

namespace test {

class KeptReports {
  public:
    explicit KeptReports(const std::filesystem::path& path) {
        std::ifstream file(path);
        std::string name;
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("== ", 0) == 0) {
                name = line.substr(3);
                reports_[name];
            } else {
                reports_[name] += line + "\n";
            }
        }
        ::testing::AddGlobalTestEnvironment(new AllAsked(*this));  // which takes it over
    }

    void expect(const std::string& name, const std::string& report) const {
        if (const char* const path = std::getenv("ZELKM_WRITE_REPORTS")) {
            std::ofstream(path, std::ios::app) << "== " << name << "\n" << report;
            return;
        }
        asked_.insert(name);
        const auto kept = reports_.find(name);
        EXPECT_EQ(kept == reports_.end() ? "no report of this name" : kept->second, report) << name;
    }

  private:
    struct AllAsked : ::testing::Environment {
        explicit AllAsked(const KeptReports& kept) : reports(kept) {}
        void TearDown() override {
            for (const auto& [name, report] : reports.reports_) {
                EXPECT_TRUE(::testing::GTEST_FLAG(filter) != "*" || reports.asked_.count(name) != 0)
                    << "no test has the report " << name;
            }
        }
        const KeptReports& reports;
    };

    std::map<std::string, std::string> reports_;
    mutable std::set<std::string> asked_;
};

}  // namespace test
