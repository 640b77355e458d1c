// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool, while each of its file calls and allocations fails in turn, or is its last one. The
// environment variable FAILING_CALLS has the path of support/failing_calls.cpp, built as a library.

#include "damaged_store.h"

namespace {

using namespace test;
using Args = std::vector<std::string>;

class ZelkmFailingCalls : public DamagedStore {
  protected:
    // Runs the tool with the nth call at fault; 0 for none.
    Outcome runFailing(const Args& args, int nth) {
        ::setenv("LD_PRELOAD", std::getenv("FAILING_CALLS"), 1);
        ::setenv("FAIL_AT", std::to_string(nth).c_str(), 1);
        const Outcome outcome = run(args);
        ::unsetenv("LD_PRELOAD");
        return outcome;
    }

    int numCalls(const Args& args) {
        ::setenv("FAIL_COUNT", (directory() / "count").c_str(), 1);
        EXPECT_EQ(0, runFailing(args, 0).status);
        ::unsetenv("FAIL_COUNT");
        const int count = std::atoi(text("count").c_str());
        EXPECT_GT(count, 100);
        return count;
    }

    // Runs a command on what is left; the doctor may have to put it right before.
    Outcome runAfterwards(const Args& args) {
        const Outcome outcome = run(args);
        if (outcome.status == 0) {
            return outcome;
        }
        run({"doctor", "--repair"});
        return run(args);
    }

    static Args listing(const std::string& level) {
        return {"--quiet", "--patch-level", level,   "--upgrade",
                "list",    "--columns",     "ALIAS", "--csv"};
    }
};

TEST_F(ZelkmFailingCalls, LoseNoObject) {
    const std::string level = "202601";
    done({"list", "--patch-level", level, "--upgrade"});
    const Files start = files();
    write("more.csv", "ALIAS,CREATOR\nx,y\nz,y\n");
    const std::string rest = "ALIAS\r\nk2\r\n";
    const std::string both = "ALIAS\r\nk1\r\nk2\r\n";
    const struct {
        Args args;
        std::string before, after;  // what is listed then
        std::string level = "202601";
    } cases[] = {
        {listing(level), both, both},
        {listing("202612"), both, both, "202612"},
        {{"add", "--alias", "n", "--creator", "c"}, both, both + "n\r\n"},
        {{"remove", "--where", "ALIAS=k1"}, both, rest},
        {{"import", "more.csv"}, both, both + "x\r\nz\r\n"},
    };
    for (const auto& [args, before, after, at_level] : cases) {
        put(start);
        Args command = args;
        if (args[0] != "--quiet") {
            command.insert(command.begin(), {"--patch-level", level});
        }
        const int count = numCalls(command);
        for (int nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE(args.back() + ", call " + std::to_string(nth));
            put(start);
            const Outcome outcome = runFailing(command, nth);
            EXPECT_TRUE(outcome.status == 0 || outcome.status == 1) << outcome.err;
            if (args[0] == "--quiet" && outcome.status == 0) {
                EXPECT_EQ(outcome.out, after);
            }
            Files now = files();
            now.erase("zelko_err.txt");
            if (outcome.status != 0 &&
                std::includes(start.begin(), start.end(), now.begin(), now.end()) &&
                now.size() + 1 >= start.size()) {
                continue;
            }
            const Outcome listed = runAfterwards(listing(at_level));
            EXPECT_TRUE(listed.out == after || (outcome.status != 0 && listed.out == before))
                << listed.out << outcome.err;
        }
    }
}

// Nothing was stored before the first object.
TEST_F(ZelkmFailingCalls, LeaveADirectoryToGoOnWithBeforeTheFirstObject) {
    const Args add = {"add", "--alias", "n", "--creator", "c"};
    put({});
    const int count = numCalls(add);
    for (const bool kills : {false, true}) {
        if (kills) {
            ::setenv("FAIL_KILLS", "1", 1);
        }
        for (int nth = 1; nth <= count; ++nth) {
            SCOPED_TRACE((kills ? "killed at " : "failed at ") + std::to_string(nth));
            put({});
            const Outcome outcome = runFailing(add, nth);
            const Outcome listed = runAfterwards({"aliases"});
            EXPECT_EQ(listed.status, 0) << listed.err;
            EXPECT_TRUE(listed.out == "c::n\n" || (outcome.status != 0 && listed.out.empty()));
        }
        ::unsetenv("FAIL_KILLS");
    }
}

TEST_F(ZelkmFailingCalls, ReplaceBothOutputsOrNone) {
    const Args wrap = {"wrap", "--in1",      "in", "--in2", "in",    "--in3", "in",   "--in4",
                       "in",   "--material", "in", "--out", "out/a", "--tag", "out/b"};
    write("in", "input");
    std::filesystem::create_directory("out");
    const Files old = {{"a", "old a"}, {"b", "old b"}};
    const auto reset = [&] {
        for (const auto& [name, content] : old) {
            write("out/" + name, content);
        }
    };
    reset();
    const int count = numCalls(wrap);
    for (int nth = 1; nth <= count; ++nth) {
        SCOPED_TRACE(nth);
        reset();
        const bool worked = runFailing(wrap, nth).status == 0;
        const Files now = files("out");
        const bool changed = now.at("a") != "old a";
        EXPECT_EQ(now.at("b") != "old b", changed);
        EXPECT_TRUE(changed || !worked);
        EXPECT_TRUE(worked || now.size() == 2);
        std::filesystem::remove_all("out");
        std::filesystem::create_directory("out");
    }
}

}  // namespace
