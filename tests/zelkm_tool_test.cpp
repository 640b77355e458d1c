// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command-line tool's commands: values, conditions, listings, keys, chains and exit status.

#include <cstring>

#include "zelkm_program.h"

namespace {

using namespace test;

// A store blob whose header says what is given, whether it is true or not.
std::string blob(const std::string& magic, char flags, char row_count, char payload_len,
                 const std::string& payload) {
    return magic + flags + std::string(31, '\0') + row_count + std::string(3, '\0') + payload_len +
           std::string(3, '\0') + payload;
}

constexpr char kRow[] =
    "k1\x1e"
    "app\x1e\x1e\x1e\x1e\x1e\n";
constexpr char kMagic[] = "SOBv1.1     ";

constexpr auto kPrivate = std::filesystem::perms(0600);

TEST_F(ZelkmTool, AcceptedValuesComeBackAsGiven) {
    const std::vector<std::string> objects[] = {{"x) WHERE ALIAS=*", "(", " ", "  both  "},
                                                {"{}", "[a,b]", "%%", "--"},
                                                {"-x", "**", "a<b>=c", "x AND"},
                                                {"AND x\t", "a,,b,", "\"q\" \\x41", "\xc3\xbc"}};
    for (const auto& v : objects) {
        done({"add", "--as-is", "--alias", v[0], "--creator", v[1], "--admin", v[2], "--accessor",
              v[3]});
    }
    EXPECT_EQ(done({"list", "--csv", "--columns", "ALIAS,CREATOR,ADMIN,ACCESSOR"}),
              "ALIAS,CREATOR,ADMIN,ACCESSOR\r\nx) WHERE ALIAS=*,(, ,  both  \r\n"
              "{},\"[a,b]\",%%,--\r\n-x,**,a<b>=c,x AND\r\n"
              "AND x\t,\"a,,b,\",\"\"\"q\"\" \\x41\",\xc3\xbc\r\n");
    for (const auto& v : objects) {
        EXPECT_EQ(done({"remove", "--where", "ALIAS=" + v[0]}), "removed 1 object\n");
    }
}

TEST_F(ZelkmTool, RefusesValuesThatBreakACommandOrARow) {
    const std::pair<std::string, std::string> cases[] = {
        {"a\x1f", "byte 2 is 0x1f"},
        {"a\x1e"
         "b",
         "byte 2 is 0x1e"},
        {"\n", "byte 1 is 0x0a"},
        {"", "empty"},
        {",a", "byte 1 is ','"},
        {"a AND b", "bytes 2 to 6"},
    };
    for (const auto& [value, reason] : cases) {
        refused(2, reason, {"add", "--alias", "a", "--creator", "c", "--accessor", value});
        refused(2, reason, {"remove", "--all", "--where", "FOO=" + value});
    }
    refused(2, "every object", {"add", "--alias", "*", "--creator", "c"});
    refused(2, "--admin=", {"add", "--alias", "a", "--creator", "c", "--admin=", "--privileged"});
    refused(2, "decimal", {"add", "--alias", "a", "--creator", "c", "--creator-uid", "0x1"});
    for (const char* list :
         {"[20000..10000]", "[1..5", "10*00", "1000, 2000", "1 ,2", "[1..4294967296]", "[1.5]",
          "[a..b]", "[1..2]3", "[1..2][3..4]", "1,[2,3]"}) {
        refused(2, "--accessor: item",
                {"add", "--alias", "a", "--creator", "c", "--accessor", list});
    }
    EXPECT_TRUE(std::filesystem::is_empty("s"));
    for (const char* list : {"[..]", "[5..],*_x[1..2]*", "[1..4294967295]a1*#", "a,,b,"}) {
        done({"add", "--duplicate", "--alias", "a", "--creator", "c", "--accessor", list});
    }
}

TEST_F(ZelkmTool, StandsInFrontOfCarelessConditions) {
    add("k1", "app");
    add("k2", "app");
    const std::vector<std::string> careless = {"FOO=k1",  "alias=k1",   "ALIAS<k1", "ALIAS>=k1",
                                               "ALIAS=*", "ALIAS <=k1", "ADMIN=1,2"};
    for (const std::string& condition : careless) {
        EXPECT_EQ(run({"remove", "--where", condition}).status, 2) << condition;
        EXPECT_EQ(run({"list", "--where", condition}).status, condition == "ALIAS=*" ? 0 : 2);
    }
    EXPECT_EQ(run({"remove"}).status, 2);
    EXPECT_EQ(run({"remove", "--where", "ALIAS=k1", "--where", "ALIAS=k2"}).status, 2);
    EXPECT_EQ(run({"list", "--columns", "ALIAS,FOO"}).status, 2);
    EXPECT_EQ(done({"remove", "--all", "--where", "ALIAS>=k1"}), "removed 0 objects\n");
    EXPECT_EQ(done({"remove", "--where", "ALIAS=k1", "CREATOR=other"}), "removed 0 objects\n");
    EXPECT_EQ(done({"remove", "--where", "ALIAS=k1", "--dry-run"}),
              "would remove app::k1\nwould remove 1 object\n");
    EXPECT_EQ(done({"remove", "--where", "ALIAS=k1"}), "removed 1 object\n");
    EXPECT_EQ(done({"remove", "--all", "--where", "FOO=x"}), "removed 1 object\n");
    add("k3", "app");
    EXPECT_EQ(done({"remove", "--all"}), "removed 1 object\n");
}

TEST_F(ZelkmTool, ShowsObjects) {
    EXPECT_EQ(done({"list", "--json"}), "[]\n");
    EXPECT_TRUE(std::filesystem::is_empty("s"));  // asking makes no store
    done({"add", "--alias", "key\t1", "--creator", "\xff\\", "--accessor", "[1..5]", "--privileged",
          "--creator-uid", "0100"});
    add("k2", "b");
    EXPECT_EQ(run({"add", "--alias", "k2", "--creator", "b"}).status, 1);
    add("k2", "c");
    done({"add", "--alias", "k2", "--creator", "c", "--duplicate"});
    EXPECT_EQ(done({"list", "--columns", "ALIAS,CREATOR,PRIV_ACC"}),
              "ALIAS     CREATOR  PRIV_ACC\n"
              "key\\x091  \\xff\\\\   1\n"
              "k2        b\n"
              "k2        c\n"
              "k2        c\n");
    EXPECT_EQ(done({"list", "--json", "--columns", "CREATOR,CREATOR_UID", "--where", "ACCESSOR=3"}),
              "[\n  {\n    \"CREATOR\": {\n      \"hex\": \"ff5c\"\n    },\n"
              "    \"CREATOR_UID\": \"0100\"\n  }\n]\n");
    done({"add", "--alias", "\xe4\xb8\xad\xcc\x81", "--creator", "\xf0\x9f\x94\x91\xc2\x9b\x7f"});
    EXPECT_EQ(done({"list", "--columns", "ALIAS,CREATOR", "--where", "ALIAS=\xe4\xb8\xad\xcc\x81"}),
              "ALIAS  CREATOR\n\xe4\xb8\xad\xcc\x81     \xf0\x9f\x94\x91\\xc2\\x9b\\x7f\n");
    EXPECT_NE(done({"list", "--json"}).find("\xf0\x9f\x94\x91\\u009b\\u007f"), std::string::npos);
    EXPECT_EQ(done({"query", "SELECT (ALIAS) WHERE CREATOR=\\x1fb\\x1f"}),
              "status 0 success\nk2\\x1e\n\\x00\n");
    EXPECT_EQ(run({"query", "SELECT (ALIAS) WHERE \\x1"}).status, 2);
    refused(1, "-917 no object matched", {"query", "DELETE WHERE ALIAS=\\x1fnone\\x1f"});
}

TEST_F(ZelkmTool, ReadsWhatOthersStored) {
    EXPECT_EQ(
        done({"query", "INSERT (ALIAS,CREATOR) VALUE (\\x1fa\\x0ab\\x1f,c)"}).find("status 0"), 0u);
    EXPECT_EQ(done({"list", "--csv", "--columns", "ALIAS,CREATOR"}),
              "ALIAS,CREATOR\r\n\"a\nb\",c\r\n");
    // A version 1.0 store may hold the separator of version 1.1: it must not be written as one.
    const std::string payload = "k" + std::string(7, '\x1e') + "|c|||||\n" + '\0';
    const std::string old_store = blob("SOBv1.0     ", 0, 1, 17, payload);
    write("s/secure_objects.db", old_store);
    EXPECT_TRUE(run({"list"}).says("0x1e"));
    EXPECT_EQ(run({"add", "--alias", "a", "--creator", "c"}).status, 1);
    EXPECT_EQ(text("s/secure_objects.db"), old_store);
}

TEST_F(ZelkmTool, ExitStatusTellsUsageFromRefusal) {
    EXPECT_EQ(run({"--help"}).status, 0);
    EXPECT_EQ(run({"add", "--help"}).status, 0);
    const std::pair<std::vector<std::string>, std::string> wrong[] = {
        {{}, "a command is missing"},
        {{"frobnicate"}, "unknown command frobnicate"},
        {{"help", "frobnicate"}, "unknown command frobnicate"},
        {{"-v"}, "unknown option -v"},
        {{"list", "--bogus", "x"}, "unknown option --bogus"},
        {{"aliases", "--where", "ALIAS=x"}, "unknown option --where"},
        {{"list", "extra"}, "unexpected argument extra"},
        {{"list", "--json", "--csv"}, "excludes"},
    };
    for (const auto& [args, words] : wrong) {
        refused(2, words, args);
    }
    EXPECT_EQ(done({"help", "add"}).find("Store an object"), 0u);
    EXPECT_EQ(done({"--version"}).find("zelkm "), 0u);
    EXPECT_EQ(run({"list", "--patch-level", "x"}).status, 2);
    for (const char* command : {"list", "info"}) {
        std::filesystem::remove("s");
        refused(1, "directory s: ", {command});
    }
}

// Names, arguments and values reach people, but never as orders: ESC, C1, and what turns the
// direction of writing.
TEST_F(ZelkmTool, GivesNoOrdersToTerminals) {
    const std::string name = "n\x1b[1m\xc2\x9b\xe2\x80\xae";
    add(name, "c");
    write(name + ".json", "[{\"" + name + "\": 1}]");
    const std::vector<std::string> commands[] = {
        {"list"},
        {"list", "--json"},
        {"show", "c::" + name},
        {"aliases"},
        {"info", "none" + name},
        {"explain", name},
        {"verify-chain", name},
        {"import", name},
        {"import", name + ".json"},
        {"list", "--wait", name},
        {name},
        {"csr", "--out", name + "/x"},
        {"wrap", "--out", name},
        {"doctor", name},
        {"attest", "--out-dir", name},
        {"list", "--dir=" + name + "\nzelkm: all is well"}};
    for (const auto& command : commands) {
        const Outcome outcome = run(command);
        const std::string all = outcome.out + outcome.err;
        EXPECT_NE(all, "");
        for (const char* order : {"\x1b", "\x9b", "\xe2\x80\xae", "\nzelkm: all"}) {
            EXPECT_EQ(all.find(order), all.npos) << command[0] << ": " << all;
        }
    }
}

TEST_F(ZelkmTool, InfoReadsAnyBytes) {
    const std::string row = kRow;
    const std::pair<std::string, std::string> cases[] = {
        {"", "shorter than a header"},
        {std::string(51, 'x'), "shorter than a header"},
        {blob(kMagic, 0, 1, 13, row + '\0'), "k1     app"},
        {blob("SOBv1.0     ", 0, 1, 12, std::string("k1|app|||||\n\0", 13)), "k1     app"},
        {blob("whatever....", 1, 1, 13, row + '\0'), "unknown, read as 1.1"},
        {blob(kMagic, 0, 1, 100, row + '\0'), "the file is truncated: 13 bytes"},
        {blob(kMagic, 0, 1, 13, row + '\0' + "more"), "4 bytes after the payload"},
        {blob(kMagic, 0, 2, 13, row + '\0'), "the payload is not 2 rows and a NUL"},
        {blob(kMagic, 0, 1, 24, row + row), "is not 1 rows"},
        {blob(kMagic, 0, 1, 5,
              "a\x1e"
              "b\x1e\x1e"),
         "is not 1 rows"},
    };
    for (const auto& [content, expected] : cases) {
        write("s/secure_objects.db.tmp", content);
        const std::string shown = done({"info", "s"});
        EXPECT_NE(shown.find(expected), shown.npos) << shown;
    }
    std::filesystem::create_directory("s/secure_objects.db");
    write("s/edbk", "key");
    write("s/edbk_digest", std::string(32, 'd'));
    const std::string shown = done({"info"});
    EXPECT_NE(shown.find("secure_objects.db: unreadable"), shown.npos);
    EXPECT_NE(shown.find("does NOT match"), shown.npos);
    write("s/edbk_digest", std::string(31, 'd'));
    EXPECT_NE(done({"info"}).find("not 32 bytes long"), shown.npos);
    std::filesystem::remove("s/edbk");  // one without the other: no verdict
    EXPECT_EQ(done({"info"}).find(" match"), shown.npos);

    std::filesystem::remove_all("s");
    std::filesystem::create_directory("s");
    add("k1", "app");
    const std::string whole = done({"info"});
    EXPECT_NE(whole.find("encrypted    true"), whole.npos);
    EXPECT_NE(whole.find("  matches edbk"), whole.npos);
    EXPECT_NE(whole.find("no file edbk"), whole.npos);  // in the error file
    EXPECT_EQ(whole.find("\xEF\xBB\xBF"), whole.npos);  // its byte order mark
}

TEST_F(ZelkmTool, KeepsAStoreThatTheLibraryWouldLose) {
    const std::string current = "s/secure_objects.db";
    add("k1", "app");
    const std::string first = text(current);
    std::filesystem::rename("s/edbk", "kept");
    EXPECT_TRUE(run({"list"}).says("edbk is missing: see 'zelkm doctor'"));
    std::filesystem::rename("kept", "s/edbk");
    write(current, "");
    EXPECT_TRUE(run({"list"}).says("is empty, which no store ever is; 'zelkm doctor'"));
    write(current, first);

    flipLastByte(current);  // and there is no backup yet
    const std::string damaged = text(current);
    EXPECT_TRUE(run({"list"}).says("-30 verification failed"));
    EXPECT_EQ(text(current), damaged);

    flipLastByte(current);
    add("k2", "app");
    flipLastByte(current);
    EXPECT_TRUE(run({"list"}).says("put the backup in place"));
    EXPECT_EQ(text(current), first);
    EXPECT_EQ(std::filesystem::status(current + ".refused").permissions(), kPrivate);
    EXPECT_EQ(done({"aliases"}), "app::k1\n");

    std::filesystem::rename(current, current + ".tmp");
    refused(1, "interrupted; 'zelkm doctor'", {"list"});
    refused(1, "interrupted; 'zelkm doctor'", {"add", "--alias", "a", "--creator", "c"});
    EXPECT_EQ(text(current + ".tmp"), first);
}

TEST_F(ZelkmTool, UpgradesTheKey) {
    add("k1", "app");
    const std::string key = text("s/edbk");
    for (const char* level : {"4294967295", "20991", "209900", "209913", "2099 1"}) {
        EXPECT_TRUE(run({"--patch-level", level, "--upgrade", "aliases"}).says("YYYYMM")) << level;
    }
    EXPECT_NE(done({"info"}).find("level of the key: 202601\n"), std::string::npos);
    EXPECT_TRUE(run({"--patch-level", "209912", "aliases"}).says("--upgrade"));
    EXPECT_EQ(text("s/edbk"), key);
    EXPECT_EQ(done({"--patch-level", "209912", "--upgrade", "aliases"}), "app::k1\n");
    EXPECT_NE(text("s/edbk"), key);
    EXPECT_NE(done({"info"}).find("level of the key: 209912\n"), std::string::npos);
    EXPECT_EQ(done({"aliases"}), "app::k1\n");  // at the level of the key
    EXPECT_TRUE(run({"--patch-level", "202601", "aliases"}).says("-33"));
}

TEST_F(ZelkmTool, MakesRequestsAndChains) {
    done({"csr", "--out", "r.pem"});
    EXPECT_EQ(text("r.pem").find("-----BEGIN CERTIFICATE REQUEST-----"), 0u);
    const std::string key = text("r.pem.keyblob");
    EXPECT_EQ(std::filesystem::status("r.pem.keyblob").permissions(), kPrivate);
    EXPECT_TRUE(run({"csr", "--out", "r.pem"}).says("already holds a key"));
    EXPECT_EQ(text("r.pem.keyblob"), key);
    EXPECT_EQ(done({"csr", "--key", "r.pem.keyblob", "--der", "--out", "-"})[0], '\x30');
    EXPECT_EQ(run({"csr", "--out", "-"}).status, 2);

    done({"attest", "--out-dir", "pem", "--key", "r.pem.keyblob"});
    done({"attest", "--out-dir", "der", "--rsa", "--der", "--challenge", "c"});
    EXPECT_EQ(std::filesystem::status("der/key.keyblob").permissions(), kPrivate);
    const std::vector<std::string> pem = {"pem/cert-1.pem", "pem/cert-2.pem", "pem/cert-3.pem"};
    const std::string together = text(pem[0]) + text(pem[1]) + text(pem[2]);
    write("all.pem", together);
    write("all.der", text("der/cert-1.der") + text("der/cert-2.der") + text("der/cert-3.der"));
    EXPECT_NE(done({"verify-chain", pem[0], pem[1], pem[2]}).find("NOT known to be trusted"),
              std::string::npos);
    done({"verify-chain", "all.pem"});
    done({"verify-chain", "all.der"});
    EXPECT_EQ(done({"verify-chain", "--json", "-"}, together).rfind("{\n  \"valid\": true,", 0),
              0u);

    std::filesystem::create_directory("other");
    done({"attest", "--out-dir", "other", "--dir=other"});
    write("garbage", "garbage");
    write("damaged.pem", together.substr(0, together.size() - 60));
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{pem[0], pem[2]}, "2 certificates"},
        {{"--json", pem[0], pem[2]}, "2 certificates"},
        {{pem[0], pem[2], pem[2]}, "certificate 1 (pem/cert-1.pem, subject"},
        {{pem[0], pem[1], "other/cert-3.pem"}, "certificate 2 (pem/cert-2.pem, subject"},
        {{pem[0], pem[1], "garbage"}, "certificate 3 (garbage): not a DER certificate"},
        {{"--separate-first", pem[0], "all.pem"}, "certificate 1 (pem/cert-1.pem, subject"},
        {{"damaged.pem"}, "damaged.pem: PEM block 3 is damaged"},
        {{"none"}, "none: no such file"},
    };
    for (const auto& [files, reason] : cases) {
        std::vector<std::string> args = {"verify-chain"};
        args.insert(args.end(), files.begin(), files.end());
        refused(1, reason, args);
    }
}

TEST_F(ZelkmTool, WrapsAndUnwraps) {
    const std::string secret("\0secret\n", 8);
    for (const char* input : {"a", "b", "c", "d", "e"}) {
        write(input, input);
    }
    const std::vector<std::string> inputs = {"--in1", "a",     "--in2", "b",     "--in3",
                                             "c",     "--in4", "d",     "--tag", "tag"};
    const auto args = [&](const char* command, const char* material, const char* out) {
        std::vector<std::string> all = {command, "--material", material, "--out", out};
        all.insert(all.end(), inputs.begin(), inputs.end());
        return all;
    };
    done(args("wrap", "-", "wrapped"), secret);
    EXPECT_NE(text("wrapped"), secret);
    EXPECT_EQ(text("tag").size(), 16u);
    EXPECT_EQ(done(args("unwrap", "wrapped", "-")), secret);
    for (size_t i = 6; i <= 12; i += 2) {
        std::vector<std::string> changed = args("unwrap", "wrapped", "-");
        changed[i] = "e";
        EXPECT_TRUE(run(changed).says("-30")) << changed[i - 1];
        changed[i] = changed[2] = "-";
        EXPECT_EQ(run(changed).status, 2);
    }

    // No secret is lost, and none reaches another user.
    write("key", secret);
    for (const char* out : {"tag", "./key", "none/../key", "a"}) {
        refused(2, "for something else", args("wrap", "key", out));
    }
    std::filesystem::create_symlink("key", "link");
    std::filesystem::create_directory("directory");
    for (const char* out : {"link", "directory", "none/key"}) {
        EXPECT_EQ(run(args("unwrap", "wrapped", out)).status, 1) << out;
    }
    EXPECT_EQ(text("key"), secret);
    write("open", "");
    std::filesystem::permissions("open", static_cast<std::filesystem::perms>(0644));
    done(args("unwrap", "wrapped", "open"));
    EXPECT_EQ(text("open"), secret);
    EXPECT_EQ(std::filesystem::status("open").permissions(),
              static_cast<std::filesystem::perms>(0600));

    flipLastByte("tag");
    EXPECT_TRUE(run(args("unwrap", "wrapped", "open")).says("-30"));
    EXPECT_EQ(text("open"), secret);
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        EXPECT_EQ(entry.path().string().find("open."), std::string::npos) << entry.path();
    }
}

}  // namespace
