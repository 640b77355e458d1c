// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// `zelkm doctor` on damaged directories, with their key and without it. Each row is a directory.
// The test holds what is found, and that neither a repair nor what comes after it loses an object.

#include <openssl/evp.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <tuple>

#include "../tools/zelkm/doctor_report.h"
#include "damaged_store.h"
#include "kept_reports.h"

namespace {

namespace fs = std::filesystem;
using namespace test;

constexpr char S[] = "secure_objects.db";
constexpr char SBak[] = "secure_objects.db.bak";
constexpr char STmp[] = "secure_objects.db.tmp";
constexpr char K[] = "edbk";
constexpr char D[] = "edbk_digest";
constexpr char RootKey[] = "soft_keymaster_root.key";

constexpr size_t kFlags = 12;  // offsets in the header
constexpr size_t kTag = 16;
constexpr size_t kRows = 44;
constexpr size_t kLen = 48;
constexpr uid_t kOwner = 65534;

std::string plainStore(const std::string& rows, char count) {
    std::string store = "SOBv1.1     " + std::string(40, '\0') + rows + '\0';
    store[kRows] = count;
    store[kLen] = static_cast<char>(rows.size() + 1);
    return store;
}

std::string plainRow(const std::string& alias) {
    return alias + "\x1e" + "app\x1e\x1e\x1e\x1e\x1e\n";
}

std::string logLine(const std::string& time, const std::string& message) {
    const std::set<std::string> warnings = {"no file", "try res", "Upgrade"};
    const bool warns = warnings.count(message.substr(0, 7)) != 0;
    return "1990-11-21 " + time + (warns ? ".126 WARN  " : ".126 ERROR ") + "[4242] [log_to_file@" +
           (warns ? "102" : "106") + "] zelkeymaster_operation.cpp(450) :" + message + "\n";
}

std::string base64(const std::string& bytes) {
    std::string text(bytes.size() * 2 + 4, '\0');
    text.resize(static_cast<size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(text.data()),
        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()))));
    return text + "\n";
}

std::string replaced(const std::string& bytes, const std::function<std::string(char)>& each) {
    std::string text;
    for (const char c : bytes) {
        text += each(c);
    }
    return text;
}

std::string hex(char c) {
    char text[3];
    const auto byte = static_cast<unsigned char>(c);
    std::snprintf(text, sizeof(text), "%x%X", byte >> 4 & 15u, byte & 15u);
    return text;
}

std::string withCarriageReturn(char c) {
    return c == '\n' ? "\r\n" : std::string(1, c);
}

std::string latin1AsUtf8(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 ? std::string(1, c)
                       : std::string{static_cast<char>(0xC0 | byte >> 6),
                                     static_cast<char>(0x80 | (byte & 0x3F))};
}

std::string replacedIfNoText(char c) {
    return (c & 0x80) == 0 ? std::string(1, c) : "\uFFFD";
}

void edit(const std::string& name, const std::function<std::string(const std::string&)>& change) {
    writeFile("s/" + name, bytes(change(text("s/" + name))));
}
void each(const std::string& name, const std::function<std::string(char)>& change) {
    edit(name, [&](const std::string& content) { return replaced(content, change); });
}
void zero(const std::string& name, size_t at = 0, size_t len = 1 << 20) {
    edit(name, [&](std::string content) {
        len = std::min(len, content.size() - at);
        return content.replace(at, len, len, '\0');
    });
}
void drop(const std::string& name) {
    fs::remove("s/" + name);
}

// A directory as it can be made again: by path the mode, the size and what a file holds, or where a
// link leads. A file of more than 1 MiB holds zeros.
using State = std::map<std::string, std::tuple<mode_t, uint64_t, std::string>>;

State stateOf(const fs::path& folder) {
    State all;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        struct stat status = {};
        EXPECT_EQ(0, ::lstat(entry.path().c_str(), &status));
        const bool is_file = S_ISREG(status.st_mode);
        const uint64_t size = is_file ? static_cast<uint64_t>(status.st_size) : 0;
        std::string content = S_ISLNK(status.st_mode)        ? fs::read_symlink(entry).string()
                              : is_file && size <= (1 << 20) ? text(entry.path())
                                                             : "";
        all[entry.path()] = {status.st_mode, size, std::move(content)};
    }
    return all;
}

void restore(const State& state) {
    fs::remove_all("s");
    fs::create_directory("s");
    for (const auto& [path, entry] : state) {
        const auto& [mode, size, content] = entry;
        if (S_ISLNK(mode)) {
            fs::create_symlink(content, path);
            continue;
        }
        if (S_ISDIR(mode)) {
            fs::create_directory(path);
        } else {
            writeFile(path, bytes(content));
            fs::resize_file(path, size);
        }
        EXPECT_EQ(0, ::chmod(path.c_str(), mode & 07777));
    }
}

// All that decides what the tool does with a directory: no times and no number of a process, which
// error files have, and no name of a folder with copies.
std::string identityOf(const State& state) {
    static const std::regex passing(R"((doctor-|2\d{3}-)[-\d]+|\d\d:\d\d:\d\d.\d{3}|\[\d+\])");
    std::string all;
    for (const auto& [path, entry] : state) {
        const auto& [mode, size, content] = entry;
        const bool is_log = path.find(".txt") != path.npos;
        all += std::regex_replace(path, passing, "") + '\0' + std::to_string(mode) + '\0' +
               (is_log ? std::regex_replace(content, passing, "") : content) + '\0';
    }
    return all;
}

// A report without what differs each time, and without the words that the page has.
std::string lasting(const std::string& report) {
    static const std::regex passing(
        R"( \([^()\n]*Z\)|\n  (meaning|to do): [^\n]*|\d{4}-\d\d-\d\d \d\d:\d\d:\d\d(\.\d+)?|-\d{8}-\d{6})");
    return std::regex_replace(report, passing, "");
}

class ZelkmDoctor : public DamagedStore {
  protected:
    ZelkmDoctor() {
        ::umask(077);
        start_.erase("zelko_err.txt");
        put(start_);
    }

    struct Expected {
        int status;
        std::string finding;  // empty for none
        std::string reads;    // the aliases after a repair; empty when none is offered
    };
    struct Row {
        const char* name;
        std::function<void()> damage;
        Expected with_key;
        Expected without;
    };
    using Command = std::vector<std::string>;
    struct Run {
        Outcome outcome;
        State after;
    };

    // What is in the directory, but the error file.
    static Files withoutLog() {
        Files all = files();
        all.erase("zelko_err.txt");
        return all;
    }

    // Runs the tool on such a directory, the same command on the same directory only once. A doctor
    // who is only asked changes nothing.
    const Run& runOn(const State& state, const Command& command) {
        const auto [known, is_new] = runs_.try_emplace({identityOf(state), command});
        if (is_new) {
            restore(state);
            const Outcome outcome = run(command);
            known->second = {outcome, stateOf("s")};
            EXPECT_TRUE(command.front() != "doctor" || command.back() == "--repair" ||
                        known->second.after == state);
        }
        return known->second;
    }

    // Expects this status and finding in a report.
    void expectReport(const Outcome& report, int status, const std::string& finding) {
        static const std::regex line("(?:wrong|not checked|note): ([a-z-]+): ");
        std::set<std::string> names = {""};
        for (std::sregex_iterator at(report.out.begin(), report.out.end(), line), end; at != end;
             ++at) {
            names.insert((*at)[1]);
        }
        EXPECT_EQ(report.status, status) << report.out << report.err;
        EXPECT_EQ(names.count(finding), 1u) << finding << '\n' << report.out;
        found_.merge(names);
    }

    State withKey(State state) const {
        const std::string& key = start_.at(RootKey);
        state[std::string("s/") + RootKey] = {S_IFREG | 0600, key.size(), key};
        return state;
    }

    // The aliases that the library shows; empty when it refuses.
    std::string aliases(const State& state) {
        const Outcome& outcome = runOn(state, {"aliases"}).outcome;
        return outcome.status == 0 ? outcome.out : "";
    }

    // The contents of all files, whatever their names are.
    static std::set<std::string> contents(const State& state) {
        std::set<std::string> all;
        for (const auto& [path, entry] : state) {
            if (S_ISREG(std::get<0>(entry)) && fs::path(path).extension() != ".txt") {
                all.insert(std::get<2>(entry));
            }
        }
        return all;
    }

    static void expectLines(const std::string& some, const std::string& all) {
        for (size_t at = 0; at < some.size(); at = some.find('\n', at) + 1) {
            const std::string line = some.substr(at, some.find('\n', at) + 1 - at);
            EXPECT_NE(all.find(line), all.npos) << line << " is not in " << all;
        }
    }

    void judge(const State& damaged, const Expected& expected, const std::string& name) {
        SCOPED_TRACE(name);
        const Outcome& report = runOn(damaged, {"doctor"}).outcome;
        expectReport(report, expected.status, expected.finding);
        reports_.expect(name, lasting(report.out));
        EXPECT_EQ(report.out.find("--repair would") == report.out.npos, expected.reads.empty());
        const auto& [repair, repaired] = runOn(damaged, {"doctor", "--repair"});
        EXPECT_EQ(identityOf(repaired) == identityOf(damaged), expected.reads.empty());
        EXPECT_EQ(identityOf(runOn(repaired, {"doctor", "--repair"}).after), identityOf(repaired));
        if (!expected.reads.empty()) {
            reports_.expect(name + ", repaired", lasting(repair.out));
            EXPECT_EQ(aliases(withKey(repaired)),
                      expected.reads == "refused" ? "" : expected.reads);
        }
    }

    // In whatever order somebody asks the doctor, repairs, finds the key again and uses the store,
    // no content goes, and the library shows at the end what it would have shown at the start.
    void expectNothingLost(const State& damaged) {
        const std::string before = aliases(withKey(damaged));
        const std::map<std::string, Command> commands = {
            {"ask", {"doctor"}}, {"list", {"aliases"}}, {"repair", {"doctor", "--repair"}}};
        std::vector<std::string> order = {"ask", "key", "list", "repair"};
        do {
            SCOPED_TRACE(order[0] + ", " + order[1] + ", " + order[2] + ", " + order[3]);
            State state = damaged;
            for (const std::string& step : order) {
                state = step == "key" ? withKey(state) : runOn(state, commands.at(step)).after;
            }
            const std::set<std::string> left = contents(state);
            for (const std::string& content : contents(damaged)) {
                EXPECT_EQ(left.count(content), 1u) << "a content of " << content.size() << " bytes";
            }
            expectLines(before, aliases(state));
        } while (std::next_permutation(order.begin(), order.end()));
    }

    void judgeRow(const Row& row) {
        put(start_);
        row.damage();
        const State with_key = stateOf("s");
        State without = with_key;
        without.erase(std::string("s/") + RootKey);
        judge(with_key, row.with_key, row.name);
        judge(without, row.without, row.name + std::string(", without its key"));
        expectNothingLost(without);
    }

    static inline const KeptReports reports_{ZELKM_TEST_DATA_DIR "/doctor_reports.txt"};
    std::set<std::string> found_;
    std::map<std::pair<std::string, Command>, Run> runs_;
};

TEST_F(ZelkmDoctor, JudgesAndRepairsWithoutLosingAnything) {
    // A store that was made under the same root key, one under another, a long one, and one whose
    // key was upgraded.
    put({{RootKey, start_[RootKey]}});
    add("other", "app");
    const Files other = withoutLog();
    put({});
    add("strange", "app");
    const Files strange = withoutLog();
    put(start_);
    add(std::string(300, 'x'), "app");
    const Files large = withoutLog();
    put(start_);
    done({"--patch-level", "202602", "--upgrade", "aliases"});
    const Files upgraded = withoutLog();

    const auto takeKeyOf = [](const Files& from) {
        write(std::string("s/") + K, from.at(K));
        write(std::string("s/") + D, from.at(D));
    };
    const auto log = [](const std::string& name, const std::string& lines) {
        write("s/" + name, lines);
    };
    const auto below = [](const std::string& name, const std::string& content) {
        fs::create_directory("s/keystore");
        write("s/keystore/" + name, content);
    };
    const std::string k1 = "app::k1\n";
    const Expected healthy = {0, "", ""};
    const Expected undecided = {3, "store-not-decrypted", ""};
    // One line for each directory.
    // clang-format off
    const std::vector<Row> rows = {
        {"healthy", [] {}, healthy, undecided},
        {"empty", [&] { put({}); }, {3, "no-store", ""}, {3, "no-store", ""}},
        {"a key and no store", [&] { drop(S), drop(SBak); }, {3, "no-store", ""}, {3, "no-store", ""}},

        // Replacements that stopped.
        {"between the renames", [&] { interrupt(); }, {1, "replacement-interrupted", kAll}, {1, "replacement-interrupted", kAll}},
        {"the same, and cut", [&] { interrupt(), cut(STmp, later_.size() - 1); }, {1, "store-missing", kBoth}, {1, "store-missing", ""}},
        {"the same, and zeros", [&] { interrupt(), zero(STmp); }, {1, "store-missing", kBoth}, {1, "store-missing", kBoth}},
        {"the same, and an emptied backup", [&] { interrupt(), cut(SBak, 0); }, {1, "replacement-interrupted", kAll}, {1, "replacement-interrupted", kAll}},
        {"a backup alone", [&] { drop(S); }, {1, "store-missing", k1}, {1, "store-missing", ""}},
        {"the first store, complete", [&] { drop(S), move(SBak, STmp); }, {1, "replacement-interrupted", k1}, {1, "replacement-interrupted", k1}},
        {"a part of a store", [&] { drop(S), drop(SBak), write(std::string("s/") + STmp, later_.substr(0, 60)); }, {1, "store-missing", ""}, {1, "store-missing", ""}},
        {"before the first rename", [&] { write(std::string("s/") + STmp, later_); }, {1, "replacement-unfinished", kBoth}, {1, "replacement-unfinished", ""}},
        {"while writing", [&] { write(std::string("s/") + STmp, later_.substr(0, 60)); }, {1, "replacement-unfinished", kBoth}, {1, "replacement-unfinished", kBoth}},

        // Less in the file, or something else.
        {"emptied", [&] { cut(S, 0); }, {1, "store-empty", k1}, {1, "store-empty", k1}},
        {"zeros", [&] { zero(S); }, {1, "store-empty", k1}, {1, "store-empty", k1}},
        {"cut in its header", [&] { cut(S, 51); }, {1, "store-cut", k1}, {1, "store-cut", k1}},
        {"cut after its header", [&] { cut(S, 52); }, {1, "store-cut", k1}, {1, "store-cut", k1}},
        {"cut", [&] { cut(S, 60); }, {1, "store-cut", k1}, {1, "store-cut", ""}},
        {"a page of zeros", [&] { put(large), zero(S, 100, 64); }, {1, "store-damaged", kBoth}, {1, "store-damaged", kBoth}},
        {"one bit", [&] { flipLastByte(kStore); }, {1, "store-refused", k1}, undecided},
        {"one bit, no backup", [&] { flipLastByte(kStore), drop(SBak); }, {1, "store-refused", ""}, undecided},
        {"one bit, a log", [&] { flipLastByte(kStore), log("zelko_err.txt", logLine("10:03:02", "error in finish process : -30")); }, {1, "store-refused", k1}, {1, "log-store-refused", ""}},
        {"the backup's bit", [&] { flipLastByte(std::string("s/") + SBak); }, {1, "backup-damaged", ""}, undecided},
        {"the backup cut", [&] { cut(SBak, 60); }, {1, "backup-damaged", ""}, {1, "backup-damaged", ""}},
        {"the backup emptied", [&] { cut(SBak, 0); }, {1, "backup-damaged", kBoth}, {1, "backup-damaged", kBoth}},
        {"bytes behind", [&] { edit(S, [](auto c) { return c + "more"; }); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"an HTML page", [&] { write(kStore, "<html><body>sign in</body></html>\n"); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"some text", [&] { write(kStore, "file not found\n"); }, {1, "no-store-file", k1}, {1, "no-store-file", ""}},
        {"gzip", [&] { write(kStore, "\x1f\x8b\x08 and more"); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"base64", [&] { edit(S, base64); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"hexadecimal", [&] { each(S, hex); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"CR LF", [&] { put(large), set(S, 60, '\n'), each(S, withCarriageReturn); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"Latin-1 as UTF-8", [&] { each(S, latin1AsUtf8); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"bytes replaced", [&] { each(S, replacedIfNoText); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"all in base64", [&] { edit(S, base64), edit(SBak, base64), edit(K, base64), edit(D, base64); }, {1, "disguised", ""}, {1, "disguised", ""}},

        // Fields of the header that nothing vouches for.
        {"fewer rows", [&] { set(S, kRows, 1); }, {1, "store-header", kBoth}, undecided},
        {"too many rows", [&] { set(S, kRows + 1, 9); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"no rows", [&] { set(S, kRows, 0); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"marked as plaintext", [&] { set(S, kFlags, 0); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"an unknown flag", [&] { set(S, kFlags + 2, 4); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"payload length 0", [&] { set(S, kLen, 0); }, {1, "store-header", kBoth}, {1, "store-header", ""}},
        {"payload length too large", [&] { set(S, kLen + 2, 1); }, {1, "store-header", kBoth}, {1, "store-cut", ""}},
        {"no tag", [&] { zero(S, kTag, 16); }, {1, "store-refused", k1}, {1, "store-header", ""}},
        {"another magic", [&] { set(S, 0, 'T'); }, {1, "store-refused", k1}, {1, "store-header", ""}},

        // Plaintext, which nobody vouches for.
        {"plaintext beside an encrypted backup", [&] { write(kStore, plainStore(plainRow("p"), 1)); }, {1, "plaintext-beside-encrypted", ""}, {1, "plaintext-beside-encrypted", ""}},
        {"plaintext", [&] { drop(SBak), write(kStore, plainStore(plainRow("p"), 1)); }, {3, "store-plaintext", ""}, {3, "store-plaintext", ""}},
        {"plaintext of another row count", [&] { write(kStore, plainStore(plainRow("p"), 3)); }, {1, "store-malformed", k1}, {1, "store-malformed", ""}},
        {"plaintext of a lost answer", [&] { write(kStore, plainStore(plainRow("p"), 1)), set(S, kFlags, 1); }, {1, "answer-lost", "app::p\n"}, {1, "answer-lost", "app::p\n"}},

        // Keys.
        {"no key", [&] { drop(K); }, {1, "key-missing", ""}, {1, "key-missing", ""}},
        {"a key of zeros", [&] { zero(K); }, {1, "key-missing", ""}, {1, "key-missing", ""}},
        {"the key in its backup", [&] { move(K, "edbk.bak"); }, {1, "key-missing", kBoth}, {1, "key-missing", kBoth}},
        {"the key in its new file", [&] { move(K, "edbk.tmp"); }, {1, "key-missing", kBoth}, {1, "key-missing", kBoth}},
        {"the key in base64", [&] { edit(K, base64); }, {1, "disguised", ""}, {1, "disguised", ""}},
        {"the key under another name", [&] { move(K, "edbk(1)"); }, {1, "key-elsewhere", ""}, {1, "key-elsewhere", ""}},
        {"another key in its place", [&] { move(K, "edbk.bak"), write("s/edbk", start_[K] + "x"); }, {1, "key-displaced", kBoth}, {1, "digest-mismatch", "refused"}},
        {"a new key, partial", [&] { write("s/edbk.tmp", "part"); }, {1, "key-change-unfinished", kBoth}, {1, "key-change-unfinished", kBoth}},
        {"one bit of the key", [&] { flipLastByte("s/edbk"); }, {1, "key-not-accepted", "refused"}, {1, "digest-mismatch", "refused"}},
        {"no digest", [&] { drop(D); }, {1, "digest-missing", kBoth}, {1, "digest-missing", ""}},
        {"one bit of the digest", [&] { flipLastByte("s/edbk_digest"); }, {1, "digest-mismatch", kBoth}, {1, "digest-mismatch", kBoth}},
        {"an upgraded key", [&] { put(upgraded); }, healthy, undecided},
        {"an upgrade that stopped before its digest", [&] { put(upgraded), write("s/edbk_digest", start_[D]); }, {1, "digest-mismatch", kBoth}, {1, "digest-mismatch", kBoth}},
        {"a damaged old key", [&] { put(upgraded), flipLastByte("s/edbk.bak"); }, {1, "key-backup-mismatch", kBoth}, {1, "key-backup-mismatch", ""}},
        {"an emptied old key", [&] { put(upgraded), cut("edbk.bak", 0); }, {1, "key-backup-mismatch", kBoth}, {1, "key-backup-mismatch", ""}},
        {"key of another device", [&] { takeKeyOf(strange); }, {3, "key-not-accepted", ""}, undecided},
        {"key made anew", [&] { takeKeyOf(other); }, {1, "store-refused", ""}, undecided},

        // To remove the file that is next to the key would make the backup unreadable.
        {"a key that only the backup needs", [&] { move(K, "edbk.tmp"), takeKeyOf(other), cut(S, 0), below(S, later_); }, {1, "key-change-unfinished", ""}, {1, "key-change-unfinished", "refused"}},

        // Other names, as a second copy into the same place leaves them.
        {"a newer store in a folder", [&] { cut(S, 0), below(S, later_); }, {1, "store-elsewhere", ""}, {1, "store-elsewhere", ""}},
        {"a newer store in capitals", [&] { drop(S), write("s/SECURE_OBJECTS.DB", later_); }, {1, "store-elsewhere", ""}, {1, "store-elsewhere", ""}},
        {"a newer store in base64", [&] { zero(S), write("s/secure_objects.db.txt", base64(later_)); }, {1, "store-elsewhere", ""}, {1, "store-elsewhere", ""}},
        {"an archive", [&] { cut(S, 52), write("s/pulled.tgz", "\x1f\x8b\x08 and more"); }, {1, "store-elsewhere", ""}, {1, "store-elsewhere", ""}},
        {"a second copy", [&] { write("s/secure_objects.db(1)", start_[S]); }, {0, "store-elsewhere", ""}, {3, "store-elsewhere", ""}},

        // What is around them.
        {"a note", [&] { write("s/notes", "x"); }, {0, "foreign-file", ""}, undecided},
        {"an old repair", [&] { write("s/edbk.doctor", "x"); }, {0, "doctor-leftover", ""}, undecided},
        {"mode 0666", [&] { ::chmod("s/edbk", 0666); }, {1, "writable-by-others", ""}, {1, "writable-by-others", ""}},
        {"mode 0640", [&] { ::chmod("s/edbk", 0640); }, {0, "readable-by-others", ""}, undecided},
        {"a link to the key", [&] { move(K, "key"), fs::create_symlink("key", "s/edbk"); }, {1, "not-a-file", ""}, {1, "not-compared", ""}},
        {"a link to the store", [&] { move(S, "store"), fs::create_symlink("store", kStore); }, {1, "not-a-file", ""}, {1, "not-compared", ""}},
        {"a link to the digest", [&] { move(D, "digest"), fs::create_symlink("digest", "s/edbk_digest"); }, {1, "not-a-file", ""}, {1, "not-compared", ""}},
        {"a link to an error file", [&] { log("log", "x"), fs::create_symlink("log", "s/zelko_err.1.txt"); }, {1, "not-a-file", ""}, {1, "not-a-file", ""}},
        {"65 MiB", [&] { log("zelko_err.2.txt", ""), cut("zelko_err.2.txt", 65 << 20); }, {1, "too-large", ""}, {1, "too-large", ""}},

        // What the library noted.
        {"a key made anew", [&] { takeKeyOf(other), log("zelko_err.txt", logLine("10:03:02", "no file edbk")); }, {1, "log-key-made-anew", ""}, {1, "log-key-made-anew", ""}},
        {"a store begun anew", [&] { put(other), log("zelko_err.txt", logLine("09:00:00", "no file edbk") + logLine("10:03:02", "no file secure_objects.db")); }, {1, "log-store-missing", ""}, {1, "log-store-missing", ""}},
        {"a lost upgrade", [&] { log("zelko_err.txt", logLine("10:03:02", "try restoreKeyBlob(-1000)") + logLine("10:03:02", "key blob is verified, regard the device is corrupted or the old version")); }, {0, "log-call-lost", ""}, undecided},
        {"a key refused", [&] { log("zelko_err.txt", logLine("10:03:02", "error in begin process : -33")); }, {0, "log-key-refused", ""}, undecided},
        {"a lost answer", [&] { log("zelko_err.txt", logLine("10:03:02", "error in update hidl call : -1000")); }, {3, "log-answer-lost", ""}, undecided},
        {"a full medium", [&] { log("zelko_err.1.txt", logLine("10:03:02", "file write fail: No space left on device(28)")); }, {0, "log-write-failed", ""}, undecided},
        {"busy", [&] { log("zelko_err.txt", logLine("10:03:02", "error in begin process : -31")); }, {0, "log-too-many-operations", ""}, undecided},
        {"an upgrade", [&] { log("zelko_err.txt", logLine("10:03:02", "Upgrade the db key file")); }, {0, "log-key-upgraded", ""}, undecided},
        {"a clock that jumps", [&] { log("zelko_err.txt", logLine("10:03:02", "invalid tag") + logLine("10:03:01", "invalid tag")); }, {0, "log-clock-jumped", ""}, undecided},
        {"other lines", [&] { log("zelko_err.2.txt", "whatever\n"); }, {0, "log-unknown-lines", ""}, undecided},
    };
    // clang-format on
    for (const Row& row : rows) {
        judgeRow(row);
    }
    // The owner has no right to what is theirs. Root acts as the owner.
    const auto give = [] {
        if (::geteuid() == 0) {
            EXPECT_EQ(0, std::system(("chown -R " + std::to_string(kOwner) + " s").c_str()));
        }
    };
    for (const auto& [name, finding] :
         {std::pair(S, "unreadable"), std::pair(".", "not-writable")}) {
        put(start_);
        give();
        ::chmod((std::string("s/") + name).c_str(), name == std::string(S) ? 0 : 0500);
        expectReport(run({"doctor"}), 1, finding);
        ::chmod("s", 0700);
    }
    if (::geteuid() == 0) {
        put(start_);
        EXPECT_EQ(0, ::chown("s/edbk_digest", kOwner, 0));
        expectReport(run({"doctor"}), 1, "mixed-owners");
        put(start_);  // files of root in a directory of somebody else whose group may write
        EXPECT_TRUE(::chown("s", kOwner, 42) == 0 && ::chmod("s", 02775) == 0);
        const Outcome report = run({"doctor"});
        expectReport(report, 1, "mixed-owners");
        expectReport(report, 1, "writable-by-others");
    } else {
        found_.insert("mixed-owners");
    }
    for (const auto& kind : zelkm_tool::findingKinds()) {
        EXPECT_EQ(found_.count(kind.name), 1u) << kind.name << " is never found";
    }
}
// With the key at hand the doctor calls no directory healthy in which a byte of a file is changed
// or a file is missing.
TEST_F(ZelkmDoctor, NoChangedDirectoryIsHealthy) {
    done({"--patch-level", "202602", "--upgrade", "aliases"});  // leaves backups of key and digest
    const Files healthy = withoutLog();
    put(healthy);
    EXPECT_EQ(done({"doctor", "--quiet"}), "verdict: healthy\n");
    const auto expectNoticed = [&](const std::string& name, const std::string& content) {
        write("s/" + name, content);
        EXPECT_NE(run({"doctor"}).status, 0) << name;
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

// Nothing is concluded from what a user has no right to look at.
TEST_F(ZelkmDoctor, LeavesToTheOwnerWhatOthersMayNotRead) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can act as another user";
    }
    fs::permissions(".", fs::perms(0755));
    for (const auto& [directory, store, status] :
         {std::tuple(0700, 0644, 2), {0744, 0644, 2}, {0755, 0600, 2}, {0755, 0644, 0}}) {
        put(start_);
        for (const auto& [name, content] : start_) {
            EXPECT_EQ(0, ::chmod(("s/" + name).c_str(), 0644));
        }
        EXPECT_TRUE(::chmod(kStore, mode_t(store)) == 0 && ::chmod("s", mode_t(directory)) == 0);
        user_ = kOwner;
        const Outcome outcome = run({"doctor"});
        user_ = 0;
        if (outcome.status == 126) {
            GTEST_SKIP() << "another user may not start the tool";
        }
        EXPECT_EQ(outcome.status, status) << outcome.out << outcome.err;
        EXPECT_EQ(outcome.says("Permission denied"), status == 2) << outcome.err;
        EXPECT_EQ(outcome.out.empty(), status == 2) << outcome.out;
    }
}

}  // namespace
