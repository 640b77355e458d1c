// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the tool says about codes, messages and logs, and about its own failures.

#include <sys/resource.h>

#include <csignal>

#include "zelkm_program.h"

namespace {

using namespace test;

class ZelkmExplain : public ZelkmTool {
  protected:
    // A store whose payload is not what was encrypted, without a backup.
    void damage() {
        add("k1", "app");
        flipLastByte("s/secure_objects.db");
    }
};

TEST_F(ZelkmExplain, TakesCodesMessagesAndLogs) {
    damage();
    EXPECT_EQ(run({"list"}).status, 1);
    write("-49", "no key\n");
    struct {
        std::vector<std::string> what;
        int status;
        std::vector<std::string> said;
    } const cases[] = {
        {{"--", "-49"}, 0, {"-49 SECURE_HW_COMMUNICATION_FAILED: the secure", "cause ", "to do "}},
        {{"49"}, 0, {"-49 SECURE_HW_"}},
        {{"DEVICE_LOCKED"}, 0, {"-72 DEVICE_LOCKED"}},
        {{"ZELKM_MALFORMED_STORE"}, 0, {"-913", "restores nothing"}},
        {{"--", "-4242"}, 1, {"no result code -4242"}},
        {{"error in begin process : -26"}, 0, {"E zelkeymaster_operation.cpp", "-26 KEY_USER"}},
        {{"error in begin process : %d"}, 0, {"refused to begin an operation\n"}},
        {{"error in begin process : -4242"}, 0, {"refused to begin an operation\n"}},
        {{"file write fail: No space left on device(28)"},
         0,
         {"could not be written: the disk is full (No space left on device)"}},
        {{"file open: \001(13)"}, 0, {"cannot be created: \\x01"}},
        {{"E/keymaster_tee( 7): [ERR] (velt_secure_db.cpp:3) DELETE error(-917)"}, 0, {"-917"}},
        {{"allocation"}, 0, {"allocation failure for out", "allocation fail during update"}},
        {{"no such words"}, 1, {"nor a known message"}},
        {{"no", "such"}, 2, {"no: no such file"}},
        {{}, 2, {"give a result code"}},
        {{"s/zelko_err.txt", "-"},
         0,
         {"-:2: 1990-01-02 03:04:05.006 W no file x (2 times)\n", "s/zelko_err.txt:1: ",
          "\n8 events\n", "1 line of others; the first is -:1: noise\\x1b]\n"}},
        {{"stdin"}, 0, {"stdin:2: "}},
        {{"--json", "49"}, 0, {"\"code\": -49,\n  \"name\": \"SECURE_HW_"}},
        {{"--json", "error in begin process : -26"}, 0, {"\"code\": -26,"}},
        {{"--json", "stdin"},
         0,
         {"{\"events\": [\n{\"file\":\"stdin\",\"line\":2,", "},\n{",
          "}],\n\"unknown\": 0, \"others\": 1}\n"}},
        {{"s/edbk_digest"}, 1, {"no library message"}},
    };
    const std::string log =
        "noise\033]\n1990-01-02 03:04:05.006 WARN  [1] [log_to_file@102] "
        "zelkeymaster_operation.cpp(1) :no file x\n"
        "1990-01-02 03:04:05.006 WARN  [1] [log_to_file@102] "
        "zelkeymaster_operation.cpp(1) :no file x\n"
        "1990-01-02 03:04:05.007 ERROR [1] [log_to_file@106] "
        "zelkeymaster_operation.cpp(2) :no key\n";
    for (const auto& c : cases) {
        std::vector<std::string> args = {"explain"};
        args.insert(args.end(), c.what.begin(), c.what.end());
        const Outcome outcome = run(args, log);
        EXPECT_EQ(outcome.status, c.status) << outcome.err;
        for (const std::string& said : c.said) {
            EXPECT_NE((outcome.out + outcome.err).find(said), std::string::npos)
                << said << " in:\n"
                << outcome.out << outcome.err;
        }
    }
    // What is packed is named, and a log may be longer than any file of a store.
    EXPECT_TRUE(run({"explain", "-"}, std::string("\xff\xfe-\0", 4)).says("- is UTF-16: "));
    EXPECT_TRUE(run({"explain", "-"}, "\x1f\x8b\x08").says("- is gzip: "));
    const char* const long_log =
        "(head -c 70000000 /dev/zero; echo; cat stdin) | \"$ZELKM\" explain - | "
        "grep -q '^2 events'";
    write("stdin", log);
    EXPECT_EQ(std::system(long_log), 0);
}

TEST_F(ZelkmExplain, FailuresTellTheirCause) {
    damage();
    Outcome outcome = run({"list"});
    EXPECT_TRUE(outcome.says("-30 verification failed: the store file is damaged")) << outcome.err;
    EXPECT_FALSE(outcome.says("keymaster_tee")) << outcome.err;
    outcome = run({"--verbose", "list"});
    EXPECT_TRUE(outcome.says("[ERR] (zelkeymaster_operation.cpp:")) << outcome.err;
    EXPECT_TRUE(outcome.says("[ERR] (velt_secure_db.cpp:")) << outcome.err;
    EXPECT_EQ(run({"explain", "-"}, outcome.err).out.find("unknown here"), std::string::npos);

    std::filesystem::remove_all("s");
    std::filesystem::create_directory("s");
    outcome = run({"query", "SELECT ALIAS"});
    EXPECT_TRUE(outcome.says("-911 ") && outcome.says("the column list has no parentheses"))
        << outcome.err;

    // A limit on the length of files stands for a disk that is full.
    add("k1", "app");
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit small = before;
    small.rlim_cur = 4000;
    ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    outcome = run({"add", "--alias", std::string(5000, 'a'), "--creator", "app"});
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_TRUE(
        outcome.says("adding the object: -1000 unknown error: the new version of a file "
                     "could not be written: not all bytes were written"))
        << outcome.err;
}

TEST_F(ZelkmExplain, ColorsOnlyTerminalsThatWantIt) {
    const std::string command =
        "script -qec '\"$ZELKM\" --dir s --verbose query \"SELECT \\\\x1b\"' typescript "
        ">/dev/null";
    const auto typescript = [&](const std::string& environment) {
        EXPECT_NE(std::system((environment + command).c_str()), 0);
        return text("typescript");
    };
    for (const char* unset : {"", "NO_COLOR= "}) {
        const std::string colored = typescript(unset);
        EXPECT_NE(colored.find("[\033[31mERR\033[0m] (velt_secure"), std::string::npos) << colored;
        EXPECT_NE(colored.find("SELECT \\x1b"), std::string::npos) << colored;
    }
    const std::string plain = typescript("NO_COLOR=1 ");
    EXPECT_NE(plain.find("[ERR] (velt_secure"), std::string::npos) << plain;
    EXPECT_EQ(plain.find('\033'), std::string::npos) << plain;
}

}  // namespace
