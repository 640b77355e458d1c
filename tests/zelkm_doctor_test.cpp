// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// `zelkm doctor` on damaged directories, with their key and without it. The tests hold its verdict
// and its findings, and follow its advice to see whether that keeps its promise.

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>

#include "damaged_store.h"

namespace {

namespace fs = std::filesystem;
using namespace test;
using Json = nlohmann::json;

constexpr size_t kFlagsOffset = 12;
constexpr size_t kRowCountOffset = 44;
constexpr size_t kPayloadLenOffset = 48;
constexpr time_t kMorning = 1795255382;  // 2026-11-21 10:03:02 UTC

std::string plainStore(const std::string& rows, char count) {
    std::string store = "SOBv1.1     " + std::string(40, '\0') + rows + '\0';
    store[kRowCountOffset] = count;
    store[kPayloadLenOffset] = static_cast<char>(rows.size() + 1);
    return store;
}

constexpr char kPlainRow[] =
    "p\x1e"
    "app\x1e\x1e\x1e\x1e\x1e\n";

std::string logLine(const std::string& time, const std::string& message) {
    const bool warns = message.rfind("no file", 0) == 0;
    return "2026-11-21 " + time + (warns ? ".126 WARN  " : ".126 ERROR ") + "[4242] [log_to_file@" +
           (warns ? "102" : "106") + "] zelkeymaster_operation.cpp(450) :" + message + "\n";
}

class ZelkmDoctor : public DamagedStore {
  protected:
    // What the doctor makes of "s".
    Json diagnose() {
        const Outcome outcome = run({"--patch-level", "202602", "doctor", "--json"});
        Json report = Json::parse(outcome.out, nullptr, /*allow_exceptions=*/false);
        EXPECT_TRUE(report.is_object()) << outcome.out << outcome.err;
        EXPECT_EQ(report["status"], outcome.status);
        for (const auto& [key, value] : report.items()) {
            expectDocumented(key);
        }
        for (const std::string& name : names(report)) {
            expectDocumented(name);
        }
        return report;
    }

    static void expectDocumented(const std::string& word) {
        static const std::string page = text(fs::path(ZELKM_DOCS_DIR) / "doctor.md");
        EXPECT_NE(page.find('`' + word + '`'), page.npos) << word;
    }

    static std::vector<std::string> names(const Json& report) {
        std::vector<std::string> all;
        for (const Json& finding : report["findings"]) {
            all.push_back(finding["name"]);
        }
        return all;
    }

    static bool finds(const Json& report, const std::string& name) {
        const std::vector<std::string> all = names(report);
        return std::find(all.begin(), all.end(), name) != all.end();
    }

    std::string aliases() {
        write("s/soft_keymaster_root.key", start_["soft_keymaster_root.key"]);
        const Outcome outcome = run({"--patch-level", "202602", "--upgrade", "aliases"});
        return outcome.status == 0 ? outcome.out : "refused";
    }

    struct Expected {
        int status;
        std::string finding;  // empty for none
        std::string reads;    // the aliases after its advice was followed; empty without advice
    };

    // Lets the doctor judge the files `damaged`, and follows its advice by hand and with --repair.
    void judge(const Files& damaged, const Expected& expected) {
        put(damaged);
        const Json report = diagnose();
        EXPECT_EQ(files(), damaged);
        EXPECT_EQ(report["status"], expected.status) << report.dump(1);
        if (!expected.finding.empty()) {
            EXPECT_TRUE(finds(report, expected.finding)) << report.dump(1);
        }
        EXPECT_EQ(report["commands"].empty(), expected.reads.empty()) << report.dump(1);
        for (const Json& finding : report["findings"]) {
            EXPECT_TRUE(finding["severity"] == "note" || !finding["needs"].empty() ||
                        !finding["changes"].empty())
                << finding.dump(1);
        }
        if (!expected.reads.empty()) {
            std::string script = "cd s && set -e";
            for (const Json& command : report["commands"]) {
                script += "\n" + command.get<std::string>();
            }
            EXPECT_EQ(0, std::system(("exec 2>/dev/null; " + script).c_str())) << script;
            EXPECT_EQ(aliases(), expected.reads) << script;
        }

        put(damaged);
        run({"--patch-level", "202602", "doctor", "--repair"});
        const Files repaired = files();
        EXPECT_EQ(repaired == damaged, expected.reads.empty());
        for (const auto& [name, content] : damaged) {
            if (repaired.count(name) == 0 || repaired.at(name) != content) {
                EXPECT_EQ(kept()[name], content) << name;
            }
        }
        const Outcome again = run({"--patch-level", "202602", "doctor", "--repair"});
        EXPECT_EQ(files(), repaired);
        if (!expected.reads.empty()) {
            EXPECT_LE(again.status == 1, expected.status == 1);
            EXPECT_EQ(aliases(), expected.reads);
        }
    }
};

TEST_F(ZelkmDoctor, JudgesWithAndWithoutTheKey) {
    struct Case {
        const char* name;
        std::function<void()> damage;
        Expected with_key;
        Expected without;
    };
    // Files of a store that was made under the same root key, and of one under another.
    put({{"soft_keymaster_root.key", start_["soft_keymaster_root.key"]}});
    add("other", "app");
    const Files other = files();
    put({});
    add("strange", "app");
    const Files strange = files();
    const Files short_row = {{"secure_objects.db", plainStore("a\x1e\n", 1)}};

    const auto takeKeyOf = [](const Files& from) {
        for (const char* name : {"edbk", "edbk_digest"}) {
            write(std::string("s/") + name, from.at(name));
        }
    };
    const Expected undecided = {3, "store-not-decrypted", ""};
    const std::vector<Case> cases = {
        {"healthy", [] {}, {0, "", ""}, undecided},
        {"empty", [&] { put({}); }, {3, "no-store", ""}, {3, "no-store", ""}},
        {"a key and no store",
         [&] {
             fs::remove(kStore);
             fs::remove("s/secure_objects.db.bak");
         },
         {3, "no-store", ""},
         {3, "no-store", ""}},

        // Replacements that stopped.
        {"between the renames",
         [&] { interrupt(); },
         {1, "replacement-interrupted", kAll},
         {1, "replacement-interrupted", kAll}},
        {"between the renames, and cut",
         [&] {
             interrupt();
             cut("secure_objects.db.tmp", later_.size() - 1);
         },
         {1, "store-missing", kBoth},
         {1, "store-missing", ""}},
        {"a backup alone",
         [&] { fs::remove(kStore); },
         {1, "store-missing", "app::k1\n"},
         {1, "store-missing", ""}},
        {"the first store, complete",
         [&] {
             fs::remove(kStore);
             move("secure_objects.db.bak", "secure_objects.db.tmp");
         },
         {1, "replacement-interrupted", "app::k1\n"},
         {1, "replacement-interrupted", "app::k1\n"}},
        {"a part of a store, beside a key",
         [&] {
             fs::remove(kStore);
             fs::remove("s/secure_objects.db.bak");
             write("s/secure_objects.db.tmp", later_.substr(0, 60));
         },
         {1, "store-missing", ""},
         {1, "store-missing", ""}},
        {"before the first rename",
         [&] { write("s/secure_objects.db.tmp", later_); },
         {1, "replacement-unfinished", kBoth},
         {1, "replacement-unfinished", ""}},
        {"while writing",
         [&] { write("s/secure_objects.db.tmp", later_.substr(0, 60)); },
         {1, "replacement-unfinished", kBoth},
         {1, "replacement-unfinished", kBoth}},

        // Files with less in them, or with something else.
        {"emptied",
         [&] { cut("secure_objects.db", 0); },
         {1, "store-empty", "app::k1\n"},
         {1, "store-empty", "app::k1\n"}},
        {"cut in its header",
         [&] { cut("secure_objects.db", 51); },
         {1, "store-cut", "app::k1\n"},
         {1, "store-cut", "app::k1\n"}},
        {"cut",
         [&] { cut("secure_objects.db", 60); },
         {1, "store-cut", "app::k1\n"},
         {1, "store-cut", ""}},
        {"one bit of the payload",
         [&] { flipLastByte(kStore); },
         {1, "store-refused", "app::k1\n"},
         undecided},
        {"that bit, and what the library said of it",
         [&] {
             flipLastByte(kStore);
             write("s/zelko_err.txt", logLine("10:03:02", "error in finish process : -30"));
         },
         {1, "store-refused", "app::k1\n"},
         {1, "log-store-refused", ""}},
        {"one bit, no backup",
         [&] {
             flipLastByte(kStore);
             fs::remove("s/secure_objects.db.bak");
         },
         {1, "store-refused", ""},
         undecided},
        {"the backup's bit",
         [&] { flipLastByte("s/secure_objects.db.bak"); },
         {1, "backup-damaged", ""},
         undecided},
        {"the backup cut",
         [&] { cut("secure_objects.db.bak", 60); },
         {1, "backup-damaged", kBoth},
         {1, "backup-damaged", ""}},
        {"bytes after the payload",
         [&] { write(kStore, text(kStore) + "more"); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},

        // Header fields that nothing vouches for.
        {"fewer rows",
         [&] { set("secure_objects.db", kRowCountOffset, 1); },
         {1, "store-header", kBoth},
         {1, "versions-contradict", ""}},
        {"rows that do not fit",
         [&] { set("secure_objects.db", kRowCountOffset + 1, 9); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},
        {"no rows",
         [&] { set("secure_objects.db", kRowCountOffset, 0); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},
        {"marked as plaintext",
         [&] { set("secure_objects.db", kFlagsOffset, 0); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},
        {"an unknown flag",
         [&] { set("secure_objects.db", kFlagsOffset + 2, 4); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},
        {"payload length 0",
         [&] { set("secure_objects.db", kPayloadLenOffset, 0); },
         {1, "store-header", kBoth},
         {1, "store-header", ""}},
        {"payload length too large",
         [&] { set("secure_objects.db", kPayloadLenOffset + 2, 1); },
         {1, "store-header", kBoth},
         {1, "store-cut", ""}},
        {"no tag",
         [&] { write(kStore, text(kStore).replace(16, 16, 16, '\0')); },
         {1, "store-refused", "app::k1\n"},
         {1, "store-header", ""}},

        // Plaintext, which nobody vouches for.
        {"plaintext",
         [&] { write(kStore, plainStore(kPlainRow, 1)); },
         {3, "store-plaintext", ""},
         {3, "store-plaintext", ""}},
        {"plaintext with another row count",
         [&] { write(kStore, plainStore(kPlainRow, 3)); },
         {1, "store-header", "app::p\n"},
         {1, "store-header", "app::p\n"}},
        {"plaintext of a lost answer",
         [&] {
             write(kStore, plainStore(kPlainRow, 1));
             set("secure_objects.db", kFlagsOffset, 1);
         },
         {1, "answer-lost", "app::p\n"},
         {1, "answer-lost", "app::p\n"}},
        {"plaintext without six values",
         [&] { put(short_row); },
         {1, "store-malformed", ""},
         {1, "store-malformed", ""}},

        // Keys.
        {"no key", [&] { fs::remove("s/edbk"); }, {1, "key-missing", ""}, {1, "key-missing", ""}},
        {"the key in its backup",
         [&] { move("edbk", "edbk.bak"); },
         {1, "key-missing", kBoth},
         {1, "key-missing", kBoth}},
        {"the key in its new file",
         [&] { move("edbk", "edbk.tmp"); },
         {1, "key-missing", kBoth},
         {1, "key-missing", kBoth}},
        {"another file in the key's place",
         [&] {
             move("edbk", "edbk.bak");
             write("s/edbk", start_["edbk"] + "x");
         },
         {1, "key-displaced", kBoth},
         {1, "key-displaced", kBoth}},
        {"a new key that was not written whole",
         [&] { write("s/edbk.tmp", "part"); },
         {1, "key-change-unfinished", kBoth},
         {1, "key-change-unfinished", kBoth}},
        {"one bit of the key",
         [&] { flipLastByte("s/edbk"); },
         {1, "digest-mismatch", "refused"},
         {1, "digest-mismatch", "refused"}},
        {"no digest",
         [&] { fs::remove("s/edbk_digest"); },
         {1, "digest-missing", kBoth},
         {1, "digest-missing", ""}},
        {"half a digest",
         [&] { cut("edbk_digest", 31); },
         {1, "digest-missing", kBoth},
         {1, "digest-missing", ""}},
        {"one bit of the digest",
         [&] { flipLastByte("s/edbk_digest"); },
         {1, "digest-mismatch", kBoth},
         {1, "digest-mismatch", kBoth}},
        {"an upgrade that stopped between key and digest",
         [&] {
             done({"--patch-level", "202601", "aliases"});
             const std::string old_digest = text("s/edbk_digest");
             done({"--patch-level", "202602", "--upgrade", "aliases"});
             write("s/edbk_digest", old_digest);
         },
         {1, "digest-mismatch", kBoth},
         {1, "key-displaced", kBoth}},
        {"a damaged old key",
         [&] {
             done({"--patch-level", "202602", "--upgrade", "aliases"});
             flipLastByte("s/edbk.bak");
         },
         {1, "key-backup-mismatch", kBoth},
         {1, "key-backup-mismatch", ""}},
        {"key and digest of another device",
         [&] { takeKeyOf(strange); },
         {3, "key-not-accepted", ""},
         undecided},
        {"key and digest made anew",
         [&] { takeKeyOf(other); },
         {1, "store-refused", ""},
         undecided},
        {"key made anew, as the library noted",
         [&] {
             takeKeyOf(other);
             write("s/zelko_err.txt", logLine("10:03:02", "no file edbk"));
         },
         {1, "log-key-made-anew", ""},
         {1, "log-key-made-anew", ""}},
        {"store lost and begun anew, as the library noted",
         [&] {
             put(other);
             write("s/zelko_err.txt", logLine("09:00:00", "no file edbk") +
                                          logLine("10:03:02", "no file secure_objects.db"));
         },
         {0, "log-store-missing", ""},
         {1, "log-store-missing", ""}},
    };
    EXPECT_GE(cases.size(), 30u);
    for (const Case& c : cases) {
        put(start_);
        c.damage();
        Files damaged = files();
        {
            SCOPED_TRACE(std::string(c.name) + ", with its key");
            judge(damaged, c.with_key);
        }
        SCOPED_TRACE(std::string(c.name) + ", without its key");
        damaged.erase("soft_keymaster_root.key");
        judge(damaged, c.without);
    }
}

// With the key at hand the doctor calls no directory healthy in which a byte of a file is changed
// or a file is missing.
TEST_F(ZelkmDoctor, NoChangedDirectoryIsHealthy) {
    done({"--patch-level", "202602", "--upgrade", "aliases"});  // leaves backups of key and digest
    fs::remove("s/zelko_err.txt");
    const Files healthy = files();
    EXPECT_EQ(diagnose()["status"], 0);
    const auto expectNoticed = [&](const std::string& name, const std::string& content) {
        write("s/" + name, content);
        EXPECT_NE(run({"--patch-level", "202602", "doctor"}).status, 0) << name;
        write("s/" + name, healthy.at(name));
    };
    for (const auto& [name, content] : healthy) {
        for (size_t at = 0; at < content.size(); at += at < 52 ? 3 : 17) {
            SCOPED_TRACE("byte " + std::to_string(at));
            std::string changed = content;
            changed[at] = static_cast<char>(changed[at] ^ 1 << at % 8);
            expectNoticed(name, changed);
        }
        expectNoticed(name, content + '\0');
        expectNoticed(name, content.substr(0, content.size() - 1));
        if (name.find(".bak") == name.npos) {
            expectNoticed(name, "");
            fs::remove("s/" + name);
            EXPECT_NE(run({"doctor"}).status, 0) << name;
            write("s/" + name, content);
        }
    }
}

TEST_F(ZelkmDoctor, LooksAtModesTimesAndNames) {
    const std::string log = logLine("09:03:01", "Upgrade the db key file") +
                            logLine("10:03:02", "error in finish process : -30");
    struct Case {
        std::string finding;
        int status;  // with the key
        std::function<void()> damage;
    };
    const std::vector<Case> cases = {
        {"writable-by-others", 1, [] { ::chmod("s/edbk", 0666); }},
        {"writable-by-others", 1, [] { ::chmod("s", 0777); }},
        {"readable-by-others", 0, [] { ::chmod("s/edbk", 0640); }},
        {"foreign-file", 0, [] { write("s/notes", "x"); }},
        {"doctor-leftover", 0, [] { write("s/edbk.doctor", "x"); }},
        {"times-of-a-copy", 0, [] { fs::remove("s/zelko_err.txt"); }},
        {"times-of-a-copy", 0,
         [&] {
             write("s/zelko_err.txt", log);
             date("zelko_err.txt", kMorning + 100);
         }},
        {"key-newer-than-store", 0, [] { date("edbk", kMorning + 9); }},
        {"store-older-than-backup", 0, [] { date("secure_objects.db.bak", kMorning + 9); }},
        {"store-began-anew", 0,
         [] {
             fs::remove("s/secure_objects.db.bak");
             date("secure_objects.db", kMorning + 9);
         }},
        {"temporary-is-newest", 1, [&] { write("s/secure_objects.db.tmp", later_); }},
        {"log-disk-full", 0,
         [] {
             write("s/zelko_err.1.txt",
                   logLine("10:03:02", "file write fail: No space left on device(28)"));
         }},
        {"log-too-many-operations", 0,
         [] { write("s/zelko_err.txt", logLine("10:03:02", "error in begin process : -31")); }},
        {"log-answer-lost", 0,
         [] {
             write("s/zelko_err.txt", logLine("10:03:02", "error in update hidl call : -1000"));
         }},
        {"log-unknown-lines", 0, [] { write("s/zelko_err.2.txt", "whatever\n"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.finding);
        put(start_);
        write("s/zelko_err.txt", logLine("10:03:02", "no file secure_objects.db"));
        for (const auto& [name, content] : files()) {
            date(name, kMorning);  // the files' own times, as the log shows
        }
        c.damage();
        const Json report = diagnose();
        EXPECT_EQ(report["status"], c.status) << report.dump(1);
        EXPECT_TRUE(finds(report, c.finding)) << report.dump(1);
    }
}

// The log's lines and the files' times tell one story, wherever the device's clock was set.
TEST_F(ZelkmDoctor, PutsEventsBesideTheTimesOfFiles) {
    const std::string refused = logLine("10:03:02", "error in finish process : -30");
    write("s/zelko_err.1.txt", logLine("09:00:00", "no file edbk"));
    write("s/zelko_err.txt",
          "\xEF\xBB\xBF" + refused + refused +
              logLine("10:03:02", "restore the stored db. need to restart keystore"));
    fs::remove("s/soft_keymaster_root.key");
    fs::remove("s/secure_objects.db.bak");
    for (const int quarters : {0, 23, -14}) {  // the device's zone: hours east, times 4
        const time_t utc = kMorning - quarters * 15 * 60;
        for (const auto& [name, content] : files()) {
            date(name, utc);
        }
        date("edbk", utc - 3600);
        std::string story;
        const Json report = diagnose();
        for (const Json& moment : report["timeline"]) {
            story += moment["where"].get<std::string>() + " " +
                     moment["time"].get<std::string>().substr(11, 8) + " " +
                     moment["what"].get<std::string>() + "\n";
        }
        EXPECT_EQ(story,
                  "zelko_err.1.txt:1 09:00:00 no file edbk\n"
                  "edbk 09:03:02 was written\n"
                  "edbk_digest 10:03:02 was written\n"
                  "secure_objects.db 10:03:02 was written\n"
                  "zelko_err.txt:1 10:03:02 error in finish process : -30 (x2)\n"
                  "zelko_err.txt:3 10:03:02 restore the stored db. need to restart keystore\n");
    }
    const Outcome outcome = run({"doctor"});
    EXPECT_EQ(outcome.status, 1);
    for (const char* words : {"wrong: log-store-refused: ", "zelko_err.txt:3",
                              "verdict: something is wrong", "not checked: store-not-decrypted",
                              "checked: zelko_err.1.txt, zelko_err.txt: 3 events"}) {
        EXPECT_NE(outcome.out.find(words), outcome.out.npos) << words << '\n' << outcome.out;
    }
}

TEST_F(ZelkmDoctor, IsSaidWhatItCannotDo) {
    EXPECT_EQ(run({"doctor", "none"}).status, 2);
    EXPECT_EQ(run({"doctor", "s/edbk"}).status, 2);
    EXPECT_EQ(run({"doctor", "s", "t"}).status, 2);
    EXPECT_NE(run({"--help"}).out.find("3  'doctor'"), std::string::npos);
    fs::remove("s/soft_keymaster_root.key");
    cut("secure_objects.db", 60);
    EXPECT_TRUE(run({"doctor", "--repair"}).says("not repaired"));
}

TEST_F(ZelkmDoctor, InfoShowsTheSameFacts) {
    move("edbk", "edbk.bak");
    write("s/edbk", "x");
    write("s/zelko_err.1.txt", "an older line\n");
    const std::string shown = done({"info"});
    for (const char* words : {"does NOT match edbk: matches edbk.bak", ", 0600, ", "edbk.tmp: none",
                              "zelko_err.1.txt: ", "  an older line"}) {
        EXPECT_NE(shown.find(words), shown.npos) << words << '\n' << shown;
    }
    const Json info = Json::parse(done({"info", "--json"}));
    EXPECT_EQ(info["key_of_digest"], "edbk.bak");
    EXPECT_EQ(info["files"][0]["store"]["row_count"], 2);
    EXPECT_EQ(info["files"][0]["mode"], "0600");
}

// The other commands do not touch a damaged directory and name the doctor.
TEST_F(ZelkmDoctor, IsNamedByTheOthers) {
    cut("secure_objects.db", 0);
    EXPECT_TRUE(run({"list"}).says("zelkm doctor"));
    fs::remove(kStore);
    EXPECT_TRUE(run({"add", "--alias", "a", "--creator", "c"}).says("zelkm doctor"));
    put(start_);
    fs::remove("s/edbk");
    EXPECT_TRUE(run({"list"}).says("zelkm doctor"));
}

}  // namespace
