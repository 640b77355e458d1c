// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool, while each of its file calls and allocations fails in turn, or is its last one. The
// environment variable FAILING_CALLS has the path of support/failing_calls.cpp, built as a library.

#include "failing_calls.h"

#include <algorithm>

#include "damaged_store.h"
#include "fault_loop.h"

namespace {

using namespace test;
using Args = std::vector<std::string>;

// A command of the tool, which has read its command line and waits for orders.
class FailingTool {
  public:
    explicit FailingTool(Args args) {
        int orders[2], reports[2];
        EXPECT_TRUE(::pipe2(orders, O_CLOEXEC) == 0 && ::pipe2(reports, O_CLOEXEC) == 0);
        args.insert(args.begin(), "--dir=s");
        args = toolWith(args);
        args.insert(args.begin(),
                    {"env", std::string("LD_PRELOAD=") + std::getenv("FAILING_CALLS")});
        Descriptors ours;
        program_ = startProgram(args, ours.copy(orders[0], kOrders).copy(reports[1], kReports));
        ::close(orders[0]);
        ::close(reports[1]);
        orders_ = orders[1];
        reports_ = reports[0];
    }
    ~FailingTool() {
        ::close(orders_);
        ::close(reports_);
        EXPECT_EQ(0, exitStatus(program_));
    }

    Outcome run(const Order& order = {}) {
        Report report = {};
        EXPECT_EQ(ssize_t(sizeof(order)), ::write(orders_, &order, sizeof(order)));
        EXPECT_EQ(ssize_t(sizeof(report)), ::read(reports_, &report, sizeof(report)));
        count_ = report.count;
        return {WIFEXITED(report.status) ? WEXITSTATUS(report.status) : -1, text("stdout"),
                text("stderr")};
    }

    // Calls attempt(the outcome with the nth call at fault), for all n.
    template <typename Prepare, typename Attempt>
    void failEachCall(const std::string& what, bool kills, Prepare prepare, Attempt attempt) {
        const int calls = untilNothingFails(what, [&](long nth) {
            prepare();
            attempt(run({nth, kills}));
            return nth <= count_;
        });
        EXPECT_GT(calls, 20);
    }

  private:
    pid_t program_;
    int orders_, reports_;
    long count_ = 0;  // of the calls in the last run
};

class ZelkmFailingCalls : public DamagedStore {
  protected:
    // Runs a command on what is left; the doctor may have to put it right before.
    Outcome runAfterwards(FailingTool* tool) {
        const Outcome outcome = tool->run();
        if (outcome.status == 0) {
            return outcome;
        }
        run({"doctor", "--repair"});
        return tool->run();
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
        Args command = args;
        const bool lists = args[0] == "--quiet";
        if (!lists) {
            command.insert(command.begin(), {"--patch-level", level});
        }
        FailingTool tool(command);
        FailingTool list(listing(at_level));
        const auto check = [&, &before = before, &after = after](const Outcome& outcome) {
            EXPECT_TRUE(outcome.status == 0 || outcome.status == 1) << outcome.err;
            EXPECT_TRUE(!lists || outcome.status != 0 || outcome.out == after) << outcome.out;
            Files now = files();
            now.erase("zelko_err.txt");
            if (outcome.status != 0 &&
                std::includes(start.begin(), start.end(), now.begin(), now.end()) &&
                now.size() + 1 >= start.size()) {
                return;
            }
            const Outcome listed = runAfterwards(&list);
            EXPECT_TRUE(listed.out == after || (outcome.status != 0 && listed.out == before))
                << listed.out << outcome.err;
        };
        const auto prepare = [&start] { put(start); };
        tool.failEachCall(args.back() + ", call", false, prepare, check);
    }
}

// Nothing was stored before the first object.
TEST_F(ZelkmFailingCalls, LeaveADirectoryToGoOnWithBeforeTheFirstObject) {
    FailingTool add({"add", "--alias", "n", "--creator", "c"});
    FailingTool aliases({"aliases"});
    for (const bool kills : {false, true}) {
        add.failEachCall(
            kills ? "killed at call" : "failing call", kills, [] { put({}); },
            [&](const Outcome& outcome) {
                const Outcome listed = runAfterwards(&aliases);
                EXPECT_EQ(listed.status, 0) << listed.err;
                EXPECT_TRUE(listed.out == "c::n\n" || (outcome.status != 0 && listed.out.empty()));
            });
    }
}

TEST_F(ZelkmFailingCalls, LeaveNothingOutsideWhereverTheDoctorIsKilled) {
    std::filesystem::create_directory("tmp");
    ::setenv("TMPDIR", "tmp", 1);
    interrupt();
    const Files damaged = files();
    const Files around = files(".");
    int touched = 0;
    FailingTool doctor({"doctor", "--repair"});
    FailingTool again({"doctor", "--repair"});
    FailingTool aliases({"aliases"});
    doctor.failEachCall(
        "killed at call", true, [&damaged] { put(damaged); },
        [&](const Outcome&) {
            touched += files() == damaged ? 0 : 1;
            EXPECT_TRUE(std::filesystem::is_empty("tmp"));
            for (const auto& [name, content] : files(".")) {
                EXPECT_TRUE(around.count(name) == 1 || name == "stdout" || name == "stderr")
                    << name;
            }
            for (const auto& [name, content] : kept()) {
                EXPECT_EQ(name.find(".key"), name.npos) << name;
            }
            again.run();
            EXPECT_EQ(run({"doctor"}).status, 0);
            EXPECT_EQ(aliases.run().out, kAll);
        });
    ::unsetenv("TMPDIR");
    EXPECT_GT(touched, 5);
}

TEST_F(ZelkmFailingCalls, ReplaceBothOutputsOrNone) {
    write("in", "input");
    const auto prepare = [] {
        std::filesystem::remove_all("out");
        std::filesystem::create_directory("out");
        write("out/a", "old a");
        write("out/b", "old b");
    };
    FailingTool wrap({"wrap", "--in1", "in", "--in2", "in", "--in3", "in", "--in4", "in",
                      "--material", "in", "--out", "out/a", "--tag", "out/b"});
    wrap.failEachCall("call", false, prepare, [](const Outcome& outcome) {
        const Files now = files("out");
        const bool worked = outcome.status == 0;
        const bool changed = now.at("a") != "old a";
        EXPECT_EQ(now.at("b") != "old b", changed);
        EXPECT_TRUE(changed || !worked);
        EXPECT_TRUE(worked || now.size() == 2);
    });
}

}  // namespace
