// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command-line tool with many objects, and with several users at once.

#include <sys/file.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "../tools/zelkm/store_file.h"
#include "zelkm_program.h"

namespace {

using namespace test;

TEST_F(ZelkmTool, TwoAtOnceLoseNothing) {
    constexpr size_t kProcesses = 8;
    constexpr size_t kAdds = 8;
    std::vector<pid_t> children;
    for (size_t p = 0; p < kProcesses; ++p) {
        children.push_back(startChild([&] {
            const std::string name = "p" + std::to_string(p);
            std::filesystem::create_directory(name);  // for its own output
            std::filesystem::current_path(name);
            int refused = 0;
            for (size_t i = 0; i < kAdds; ++i) {
                const Outcome added = run({"add", "--wait", "300", "--alias", std::to_string(i),
                                           "--creator", name, "--dir=../s"});
                refused += added.status == 0 ? 0 : 1;
            }
            return refused;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(exitStatus(child), 0) << "so many adds were refused";
    }
    EXPECT_EQ(done({"list", "--count"}), std::to_string(kProcesses * kAdds) + '\n');
}

TEST_F(ZelkmTool, SaysWhoHoldsTheDirectory) {
    add("k1", "app");
    const int held = ::open("s", O_RDONLY);
    const std::string me = "process " + std::to_string(::getpid());
    const std::vector<std::string> writing = {"list", "--wait", "0"};
    const std::vector<std::vector<std::string>> reading = {{"info", "--wait", "0"},
                                                           {"doctor", "--wait", "0"}};
    ASSERT_EQ(::flock(held, LOCK_SH), 0);
    EXPECT_TRUE(run(writing).says("in use by " + me)) << run(writing).err;
    for (const auto& args : reading) {
        done(args);
    }
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    for (const auto& args : reading) {
        EXPECT_EQ(run(args).status, 1);
    }
    const Outcome waited = run({"list", "--wait", "1"});
    EXPECT_TRUE(waited.says("waiting for " + me)) << waited.err;
    EXPECT_FALSE(run({"list", "--wait", "1", "--quiet"}).says("waiting"));
    ::close(held);
    EXPECT_EQ(done({"aliases"}), "app::k1\n");
}

// Every value that the store can hold through the library.
TEST_F(ZelkmTool, ExportsAndImportsByteForByte) {
    std::vector<std::string> values = {"a\nb",      "\"q\",\r\n",   "x AND y", "\xff\xfe", "*", " ",
                                       "\xc2\x85z", "\xe4\xb8\xad", "=1+1",    "a,",       "\\"};
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != 0x1E && byte != 0x1F && byte != ',') {
            values.push_back({static_cast<char>(byte), static_cast<char>(byte)});
        }
    }
    const char* const columns[] = {"ALIAS",    "CREATOR",     "ADMIN",
                                   "ACCESSOR", "CREATOR_UID", "PRIV_ACC"};
    std::string commands = "INSERT (ADMIN) VALUE (no alias)\nINSERT (ADMIN) VALUE (no alias)\n\n";
    for (size_t i = 0; i < values.size(); ++i) {
        std::string escaped;
        for (const char c : values[i]) {
            char digits[5];
            std::snprintf(digits, sizeof(digits), "\\x%02x", static_cast<unsigned char>(c));
            escaped += digits;
        }
        commands +=
            std::string("INSERT (") + columns[i % 6] + ") VALUE (\\x1f" + escaped + "\\x1f)\n";
    }
    done({"query", "-"}, commands);
    for (const char* format : {"--json", "--csv"}) {
        const std::string exported = done({"export", format});
        const std::string other = std::string("--dir=") + (format + 2);
        std::filesystem::create_directory(format + 2);
        EXPECT_EQ(done({"import", "--as-is", "-", other}, exported),
                  "imported " + std::to_string(values.size() + 2) + " objects\n");
        EXPECT_EQ(done({"export", format, other}), exported);
        EXPECT_EQ(done({"export", other}), done({"export"}));
    }
}

TEST_F(ZelkmTool, ImportNamesWhatItRefuses) {
    const std::string header = "CREATOR,ALIAS,ACCESSOR\n";
    const std::pair<std::string, std::string> cases[] = {
        {header + "c,a,1\nc,\"b\nb\",2\nc,d", "line 5: 2 values for 3 columns"},
        {header + "c,a,[2..1]", "line 2: ACCESSOR: item '[2..1]'"},
        {header + "c,a,1\r\nc,a,2\r\n", "line 3: creator c already has an object with the alias a"},
        {header + "old,k1,", "line 2: creator old already has an object with the alias k1"},
        {header + ",a,1", "line 2: CREATOR is missing"},
        {header + "c,\"a", "the closing quote is missing"},
        {header + "c,\"a\"a,1", "continues after its closing quote"},
        {header + "c,a\"\",1", "must be doubled"},
        {"CREATOR,NAME\nc,a", "line 1: unknown column 'NAME'"},
        {"", "line 1: the column names are missing"},
        {R"([{"ALIAS": "a", "CREATOR": "c"}, 1])", "object 2: not an object"},
        {R"([{"ALIAS": {"hex": "616"}, "CREATOR": "c"}])", "object 1: ALIAS: a value is a string"},
        {R"([{"ALIAS": "a", "CREATOR": "c", "x": ""}])", "object 1: unknown column 'x'"},
        {R"([{"ALIAS": "a",])", "standard input: parse error"},
    };
    add("k1", "old");
    for (const auto& [text, reason] : cases) {
        refused(1, reason, {"import", "-"}, text);
    }
    EXPECT_EQ(done({"aliases"}), "old::k1\n");

    const Outcome some =
        run({"import", "--keep-going", "-"},
            "\xEF\xBB\xBF" + header + "c,a,1\nc,b,[x]\n\"c\",\"\"\"\",\nc,\x1e,\nc,b,1\n");
    EXPECT_EQ(some.status, 1);
    EXPECT_EQ(some.out, "imported 3 objects\n");  // b is one: a refused object takes no name
    EXPECT_TRUE(some.says("line 3: ") && some.says("line 5: ") && some.says("left out 2 objects"));
    EXPECT_EQ(done({"aliases"}), "old::k1\nc::a\nc::\"\nc::b\n");
}

// The files that spreadsheets and other programs write.
TEST_F(ZelkmTool, ImportsWhatOthersWrite) {
    std::string ones;
    while (ones.size() < 400000) {
        ones += "1,";
    }
    const std::pair<std::string, std::string> cases[] = {
        {"alias;Creator;ADMIN;;\r\na;c;1,2;;\r\n;;;;\r\nb;c;;;\r\n\r\n", ""},
        {"\xEF\xBB\xBF"
         "alias\tcreator\tadmin\na\tc\t1,2\nb\tc\t\n\n",
         ""},
        {R"([{"alias":"a","CREATOR":"c","ADMIN":"1,2"},{"ALIAS":"b","CREATOR":"c","ADMIN":null}])",
         ""},
        {"{\"ALIAS\":\"a\",\"CREATOR\":\"c\",\"ADMIN\":\"1,2\"}\n\n{\n\"ALIAS\":\"b\",\"CREATOR\":"
         "\"c\"}",
         ""},
        {R"({"ALIAS":7,"CREATOR":"}\"{"})", "}\"{::7"},
        {std::string("\xFF\xFE"
                     "A\0",
                     4),
         "UTF-16"},
        {"ALIAS;CREATOR\na;c;d\n", "line 2: 3 values for 2 columns"},
        {"{\"ALIAS\":\"a\"}\n{\"ALIAS\":1.5}",
         "line 2: ALIAS: a value is a string, a whole number"},
        {"{\"ALIAS\":\"a\"}\n]", "line 2: parse error"},
        {R"([[{"x":1}], {"ALIAS":["a"]}])", "object 1: not an object"},
        {R"([{"ALIAS":{"hex":[{"x":1}]}}])", "object 1: the values are nested too deep"},
        {"ALIAS\n" + std::string(1000, '\n') + "a", "line 1002: CREATOR is missing"},
        {"[" + ones + "1]", "object 200001: more than 200000 objects"},
    };
    for (const auto& [text, expected] : cases) {
        std::filesystem::remove_all("s");
        std::filesystem::create_directory("s");
        const Outcome outcome = run({"import", "-"}, text);
        const std::string stored = done({"aliases"});
        if (expected.empty()) {
            EXPECT_EQ(done({"list", "--csv", "--columns", "ALIAS,CREATOR,ADMIN"}),
                      "ALIAS,CREATOR,ADMIN\r\na,c,\"1,2\"\r\nb,c,\r\n")
                << text << outcome.err;
        } else {
            EXPECT_TRUE(outcome.says(expected) || stored == expected + '\n') << outcome.err;
            EXPECT_EQ(outcome.status == 0, !stored.empty());
        }
    }
}

// The first import of all makes the store, the second one changes it. Wherever the tool is killed,
// the store has all objects of an import or none.
TEST_F(ZelkmTool, AnImportIsOneChange) {
    std::string many = "ALIAS,CREATOR\n";
    for (int i = 0; i < 10000; ++i) {
        many += std::to_string(i) + ",c\n";
    }
    write("many.csv", many);
    done({"import", "-"}, "ALIAS,CREATOR\nk1,old\n");
    std::filesystem::copy("s", "t");
    const auto start = std::chrono::steady_clock::now();
    done({"import", "many.csv", "--dir=t"});
    const auto whole = std::chrono::steady_clock::now() - start;
    for (int part = 0; part <= 12; ++part) {
        std::filesystem::remove_all("t");
        std::filesystem::copy("s", "t");
        const pid_t child = startProgram(toolWith({"--dir=t", "--quiet", "import", "many.csv"}));
        std::this_thread::sleep_for(whole * part / 10);
        ::kill(child, SIGKILL);
        const int status = exitStatus(child);
        run({"doctor", "--repair", "--dir=t"});
        const std::string stored = done({"list", "--count", "--dir=t"});
        EXPECT_TRUE(stored == "10001\n" || (stored == "1\n" && status != 0)) << stored;
    }
    // The file is as the library writes it.
    const std::string exported = done({"export"});
    add("k2", "old");
    done({"remove", "--where", "ALIAS=k2"});
    EXPECT_EQ(done({"export"}), exported);
}

TEST_F(ZelkmTool, RefusesToMakeAStoreThatIsNotRead) {
    const auto objects = [](size_t len) {
        return "ALIAS,CREATOR\na" + std::to_string(len) + ',' + std::string(len, 'x');
    };
    EXPECT_EQ(run({"import", "-"}, objects(400000)).err.find("on a device"), std::string::npos);
    EXPECT_TRUE(run({"import", "-"}, objects(130000)).says("share 1040384"));
    EXPECT_EQ(run({"import", "--quiet", "-"}, objects(1)).err, "");

    using Rows = std::vector<std::vector<std::string>>;
    write("s/secure_objects.db", zelkm_tool::plainStore(Rows(10001, Rows::value_type(6))));
    EXPECT_NE(done({"info", "--json"}).find("only the first 10000 of 10001 rows"),
              std::string::npos);

    const std::string large((64 << 20) - 100000, 'x');
    const std::string store = zelkm_tool::plainStore({{large, "", "", "", "", ""}});
    write("s/secure_objects.db", store);
    const std::string too_large = "67108864 is read";
    EXPECT_TRUE(run({"import", "-"}, objects(110000)).says(too_large));
    EXPECT_TRUE(
        run({"add", "--alias", std::string(110000, 'x'), "--creator", "c"}).says(too_large));
    EXPECT_EQ(std::filesystem::file_size("s/secure_objects.db"), store.size());
}

TEST_F(ZelkmTool, FindsObjects) {
    done(
        {"import", "-"},
        "CREATOR,ALIAS,ACCESSOR,ADMIN\na,b::c,\"1000,[20..30]\",\na::b,c,[25..],25\nx,y\t,*_25,\n");
    EXPECT_EQ(done({"who", "25", "--csv"}),
              "CREATOR,ALIAS,ACCESSOR\r\na,b::c,\"1000,[20..30]\"\r\na::b,c,[25..]\r\n");
    EXPECT_EQ(done({"who", "2", "--count"}), "0\n");
    EXPECT_EQ(run({"who", "*"}).status, 2);
    EXPECT_EQ(run({"who"}).status, 2);
    EXPECT_EQ(done({"who", "--nobody", "--count"}), "0\n");
    EXPECT_EQ(done({"who", "--object", "a::b::c", "--csv"}),
              "CREATOR,ALIAS,ACCESSOR,WHO\r\na,b::c,1000,only 1000\r\n"
              "a,b::c,[20..30],numbers from 20 to 30\r\n"
              "a::b,c,[25..],numbers from 25 to 4294967295\r\n");
    EXPECT_TRUE(run({"who", "c"}).says("zelkm who --object a::b::c"));
    EXPECT_EQ(done({"list", "--where", "ADMIN=25", "--count"}), "1\n");

    const std::string shown = done({"show", "a::b::c"});
    EXPECT_NE(shown.find("ALIAS        b::c\n"), shown.npos);
    EXPECT_NE(shown.find("\n\nCOLUMN       VALUE\nALIAS        c\n"), shown.npos);
    EXPECT_NE(done({"show", "a::b::c", "--json"}).find("\"ALIAS\": \"b::c\""), shown.npos);
    EXPECT_EQ(done({"show", "x::y\\x09"}), done({"show", "x::y\t"}));
    EXPECT_TRUE(run({"show", "x::z"}).says("no object x::z"));

    EXPECT_TRUE(run({"aliases"}).says("tells them apart"));
    EXPECT_FALSE(run({"aliases", "--quiet"}).says("tells them apart"));
    done({"remove", "--where", "ALIAS=b::c"});
    done({"remove", "--where", "ALIAS=c"});
    EXPECT_EQ(run({"aliases"}).err, "");
}

TEST_F(ZelkmTool, ChangesAnObject) {
    const std::string header = "ALIAS,CREATOR,ADMIN,ACCESSOR,CREATOR_UID,PRIV_ACC\r\n";
    done({"import", "--as-is", "-"}, header + "k0,c,,*,,\nk1,c,5,\"a,1\",7,\nk2,c,,,,\nk2,c,,,,\n");
    const std::string before = done({"list", "--csv"});
    const struct {
        std::vector<std::string> args;
        int status;
        std::string row;  // that k1 then has; or what is said
    } cases[] = {
        {{"--alias", "k3"}, 0, "k3,c,5,\"a,1\",7,"},
        {{"--creator", "d", "--creator-uid", "8", "--privileged", "yes"}, 0, "k1,d,5,\"a,1\",8,1"},
        {{"--add-accessor", "10042,1"}, 0, "k1,c,5,\"a,1,10042\",7,"},
        {{"--remove-accessor", "1,a", "--admin", ""}, 0, "k1,c,,,7,"},
        {{"--accessor", "[1..2]", "--add-accessor", "x*"}, 0, "k1,c,5,\"[1..2],x*\",7,"},
        {{"--admin", "5"}, 0, "k1,c,5,\"a,1\",7,"},
        {{"--alias", "k3", "--dry-run"}, 0, "k1,c,5,\"a,1\",7,"},
        {{"--alias", "k0"}, 1, "there is already an object c::k0"},
        {{"--alias", ""}, 2, "--alias: "},
        {{"--add-accessor", "[2..1]"}, 2, "--add-accessor: "},
    };
    for (const auto& [args, status, row] : cases) {
        std::filesystem::remove_all("t");
        std::filesystem::copy("s", "t");
        std::vector<std::string> all = {"set", "c::k1", "--dir=t"};
        all.insert(all.end() - 1, args.begin(), args.end());
        const Outcome outcome = run(all);
        EXPECT_EQ(outcome.status, status) << outcome.err;
        std::string expected = before;
        if (status == 0) {
            const std::string old = "k1,c,5,\"a,1\",7,";
            expected.replace(before.find(old), old.size(), row);
        } else {
            EXPECT_TRUE(outcome.says(row)) << outcome.err;
        }
        EXPECT_EQ(done({"list", "--csv", "--dir=t"}), expected);
    }
    EXPECT_EQ(done({"set", "c::k1", "--alias", "k3", "--dry-run"}),
              "would change c::k1\nCOLUMN  BEFORE  AFTER\nALIAS   k1      k3\n");
    EXPECT_TRUE(run({"set", "c::k2", "--alias", "k3"}).says("2 objects named c::k2"));
    EXPECT_TRUE(run({"set", "k2", "--alias", "k3"}).says("no object k2"));
    EXPECT_EQ(done({"who", "--nobody", "--csv"}), "CREATOR,ALIAS,ACCESSOR\r\nc,k2,\r\nc,k2,\r\n");
}

// What the tool writes to a terminal of 40 columns.
std::string onTerminal(std::vector<std::string> args) {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(::grantpt(terminal) + ::unlockpt(terminal), 0);
    const int other_end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    const winsize size = {24, 40, 0, 0};
    EXPECT_EQ(::ioctl(other_end, TIOCSWINSZ, &size), 0);
    args.insert(args.begin(), "--dir=s");
    Descriptors descriptors;
    exitStatus(startProgram(toolWith(args), descriptors.copy(other_end, 1).copy(other_end, 2)));
    char text[4096];
    const ssize_t len = ::read(terminal, text, sizeof(text));
    ::close(other_end);
    ::close(terminal);
    return {text, static_cast<size_t>(std::max<ssize_t>(len, 0))};
}

TEST_F(ZelkmTool, FitsATerminal) {
    write("objects", "ALIAS,CREATOR\n" + std::string(5000, 'x') + ",\xe4\xb8\xad\xe4\xb8\xad\n");
    done({"import", "objects"});
    const std::string shown = onTerminal({"list", "--columns", "ALIAS,CREATOR"});
    EXPECT_EQ(shown, "ALIAS" + std::string(28, ' ') + "CREATOR\r\n" + std::string(30, 'x') +
                         "\xe2\x80\xa6  \xe4\xb8\xad\xe4\xb8\xad\r\n");
    EXPECT_NE(done({"list"}).find(std::string(5000, 'x')), std::string::npos);
}

TEST_F(ZelkmTool, RunsCommandsFromAFile) {
    write("commands", "INSERT (ALIAS) VALUE (k)\n\nSELECT (ALIAS)");
    EXPECT_EQ(done({"query", "--file", "commands"}),
              "status 0 success\nnew store of 61 bytes\nstatus 0 success\nk\\x1e\n\\x00\n");
    EXPECT_TRUE(run({"query", "-"}, "SELECT (ALIAS)\nSELECT \\").says("line 2: byte 8"));
    EXPECT_TRUE(run({"query", "-"}, "\nSELECT ALIAS\nDELETE").says("line 2: -911"));
    EXPECT_EQ(run({"query"}).status, 2);
    EXPECT_EQ(done({"list", "--count"}), "1\n");
}

}  // namespace
