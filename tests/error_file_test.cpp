// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The error file, line by line. Its logger belongs to the process and keeps every set-up. Each test
// therefore writes in a child of its own.

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <sstream>
#include <thread>

#include "temp_dir.h"
#include "velt_secure_db.h"
#include "zelkeymaster_operation.h"
#include "zelkeymaster_operation_internal.h"

namespace {

using test::Lines;

constexpr char kErrorFile[] = "zelko_err.txt";

class ErrorFile : public test::InTempDir {
  protected:
    static void inChild(const std::function<void()>& action) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(300);  // ends one that hangs
            action();
            std::fflush(stdout);  // shows what failed
            ::_exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    static void construct() { ZelKeymasterOperation object(nullptr, false); }

    // What follows "yyyy-mm-dd hh:mm:ss.mmm " in each line. A file begins with a byte order mark.
    static Lines lines(const std::string& name = kErrorFile) {
        std::istringstream in(test::text(name));
        Lines result;
        for (std::string line; std::getline(in, line);) {
            const size_t mark = line.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
            result.push_back(line.substr(std::min<size_t>(line.size(), mark + 24)));
        }
        return result;
    }
    // A line of thread `tid`.
    static std::string error(const std::string& tid, const std::string& message) {
        return "ERROR [" + tid + "] [log_to_file@106] zelkeymaster_operation.cpp" + message;
    }
    static std::string warning(const std::string& tid, const std::string& message) {
        return "WARN  [" + tid + "] [log_to_file@102] zelkeymaster_operation.cpp" + message;
    }
    // What a child wrote into "tid".
    static std::string tid() { return test::text("tid"); }
};

TEST_F(ErrorFile, HoldsTheObjectsErrorsAndWarningsOncePerSetUp) {
    const auto use = [] {
        test::writeFile("tid", test::bytes(std::to_string(::syscall(SYS_gettid))));
        uint8_t* data = nullptr;
        uint32_t len = 0;
        const auto warn = [&] {
            EXPECT_EQ(0, ZelKeymasterOperation::load_data("missing", &data, &len));
        };
        warn();  // before the first set-up: to the platform log only
        EXPECT_TRUE(test::logged("W object: no file missing"));
        construct();  // a debug line
        uint64_t handle = 0;
        EXPECT_EQ(ZELKM_INVALID_ARGUMENT,
                  sdb_query(nullptr, 0, nullptr, 0, nullptr, nullptr, &handle));
        EXPECT_TRUE(test::logged("E engine: command or len is null"));
        warn();
        log_to_file('W', "ignored.cpp", 997, "no file %s", "secure_objects.db");
        log_to_file('D', nullptr, 13, "debug");
        log_to_file('e', nullptr, 14, "no level");
        ZelKeymasterOperation object(nullptr, false);
        object.initZelKeymasterOperation();
        log_to_file('E', nullptr, 12, "%s(%d)", "text", ZELKM_VERIFICATION_FAILED);
    };
    inChild([&] { std::thread(use).join(); });
    Lines written = lines();
    ASSERT_EQ(5u, written.size());
    const std::string end = ") :no file missing";
    EXPECT_EQ(end, written[0].substr(written[0].size() - std::min(end.size(), written[0].size())));
    written[0] = "";
    const std::string thrice = error(tid(), "(12) :text(-30)");
    EXPECT_EQ(
        (Lines{"", warning(tid(), "(997) :no file secure_objects.db"), thrice, thrice, thrice}),
        written);
}

TEST_F(ErrorFile, RollsOverBeyond10000Bytes) {
    for (const size_t full : {10000u, 10001u}) {
        inChild([full] {
            const auto write = [](size_t len) {
                log_to_file('E', nullptr, 1, "%s", std::string(len, 'x').c_str());
                return std::filesystem::file_size(kErrorFile);
            };
            construct();
            size_t size = write(0);
            const size_t line = size - 3;  // one without text; 3 bytes are the byte order mark
            while (size != full) {
                size = write((full - size > 1100 ? 500 : full - size) - line);
            }
            write(0);
            EXPECT_EQ(full > 10000, std::filesystem::exists("zelko_err.1.txt"));
        });
        std::filesystem::remove(kErrorFile);
    }
}

TEST_F(ErrorFile, CutsTextsAndRollsOver) {
    inChild([] {
        construct();
        for (int i = 0; i < 40; ++i) {
            log_to_file('E', nullptr, i, "%s", std::string(i == 0 ? 1022 : 1500, 'x').c_str());
        }
        test::writeFile("tid", test::bytes(std::to_string(::getpid())));
    });
    const std::string cut = ") :" + std::string(1022, 'x');
    EXPECT_EQ(error(tid(), "(39" + cut), lines().back());
    EXPECT_EQ(error(tid(), "(" + std::to_string(40 - lines().size() - 1) + cut),
              lines("zelko_err.1.txt").back());
    // The line that takes a file beyond 10000 bytes is its last one. At most three files stay.
    const auto size = [](const char* name) { return std::filesystem::file_size(name); };
    EXPECT_GT(size("zelko_err.1.txt"), 10000u);
    EXPECT_LT(size("zelko_err.1.txt"), 10000u + 1200);
    EXPECT_EQ(size("zelko_err.1.txt"), size("zelko_err.2.txt"));
    EXPECT_FALSE(std::filesystem::exists("zelko_err.3.txt"));
}

}  // namespace
