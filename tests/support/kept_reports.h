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
    explicit KeptReports(const std::filesystem::path& path) : all_(*new All) {
        ::testing::AddGlobalTestEnvironment(&all_);  // which takes it over
        std::ifstream file(path);
        std::string name;
        for (std::string line; std::getline(file, line);) {
            if (line.rfind("== ", 0) == 0) {
                name = line.substr(3);
                all_.reports[name];
            } else {
                all_.reports[name] += line + "\n";
            }
        }
    }

    void expect(const std::string& name, const std::string& report) const {
        all_.asked.insert(name);
        if (const char* const path = std::getenv("ZELKM_WRITE_REPORTS")) {
            std::ofstream(path, std::ios::app) << "== " << name << "\n" << report;
            return;
        }
        const auto kept = all_.reports.find(name);
        EXPECT_EQ(kept == all_.reports.end() ? "no report of this name" : kept->second, report)
            << name;
    }

  private:
    struct All : ::testing::Environment {
        void TearDown() override {
            for (const auto& [name, report] : reports) {
                EXPECT_TRUE(::testing::GTEST_FLAG(filter) != "*" || asked.count(name) != 0)
                    << "no test has the report " << name;
            }
        }
        std::map<std::string, std::string> reports;
        std::set<std::string> asked;
    };

    All& all_;
};

}  // namespace test
