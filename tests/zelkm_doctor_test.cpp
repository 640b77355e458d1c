// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// `zelkm doctor` on damaged directories: what it says, what it repairs, and what it leaves alone.

#include <functional>
#include <map>

#include "zelkm_program.h"

namespace {

namespace fs = std::filesystem;
using namespace test;

constexpr size_t kFlagsOffset = 12;
constexpr size_t kRowCountOffset = 44;
constexpr size_t kPayloadLenOffset = 48;

std::string plainStore(const std::string& rows, char count) {
    std::string store = "SOBv1.1     " + std::string(40, '\0') + rows + '\0';
    store[kRowCountOffset] = count;
    store[kPayloadLenOffset] = static_cast<char>(rows.size() + 1);
    return store;
}

constexpr char kPlainRow[] =
    "p\x1e"
    "app\x1e\x1e\x1e\x1e\x1e\n";

class ZelkmDoctor : public test::ZelkmTool {
  protected:
    using Files = std::map<std::string, std::string>;

    // The directory "s" holds k1 and k2, its backup k1; "later" the store of a third object.
    ZelkmDoctor() {
        add("k1", "app");
        add("k2", "app");
        start_ = files();
        add("k3", "app");
        later_ = text(kStore);
        put(start_);
    }

    static Files files() {
        Files all;
        for (const auto& entry : fs::directory_iterator("s")) {
            if (entry.is_regular_file()) {
                all[entry.path().filename()] = text(entry.path());
            }
        }
        return all;
    }

    static void put(const Files& all) {
        fs::remove_all("s");
        fs::create_directory("s");
        for (const auto& [name, content] : all) {
            write("s/" + name, content);
        }
    }

    // The copies in the folders of all repairs.
    static Files kept() {
        Files all;
        for (const auto& folder : fs::directory_iterator("s")) {
            if (folder.is_directory()) {
                for (const auto& file : fs::directory_iterator(folder)) {
                    all[file.path().filename()] = text(file.path());
                }
            }
        }
        return all;
    }

    static void move(const std::string& from, const std::string& to) {
        fs::rename("s/" + from, "s/" + to);
    }
    static void set(const std::string& name, size_t at, char byte) {
        std::string content = text("s/" + name);
        content[at] = byte;
        write("s/" + name, content);
    }
    static void cut(const std::string& name, size_t len) { fs::resize_file("s/" + name, len); }

    static constexpr char kStore[] = "s/secure_objects.db";
    static constexpr char kBoth[] = "app::k1\napp::k2\n";

    Files start_;
    std::string later_;
};

TEST_F(ZelkmDoctor, RepairsWhatItSays) {
    struct Case {
        std::function<void()> damage;
        std::vector<std::string> says;
        std::string aliases;  // after the repair
    };
    const std::vector<Case> cases = {
        {[&] {  // stopped after the first rename
             move("secure_objects.db", "secure_objects.db.bak");
             write("s/secure_objects.db.tmp", later_);
         },
         {"stopped after its first rename", "secure_objects.db from secure_objects.db.tmp"},
         "app::k1\napp::k2\napp::k3\n"},
        {[&] {
             move("secure_objects.db", "secure_objects.db.bak");
             write("s/secure_objects.db.tmp", later_);
             cut("secure_objects.db.tmp", later_.size() - 1);
         },
         {"secure_objects.db.tmp is cut", "secure_objects.db from secure_objects.db.bak"},
         kBoth},
        {[&] { fs::remove(kStore); }, {"a restore of the backup stopped half-way"}, "app::k1\n"},
        {[&] {
             fs::remove(kStore);
             move("secure_objects.db.bak", "secure_objects.db.tmp");
         },
         {"the first secure_objects.db was being written", "is complete"},
         "app::k1\n"},
        {[&] {
             put({{"secure_objects.db.tmp", later_.substr(0, 60)}});
             write("s/soft_keymaster_root.key", start_["soft_keymaster_root.key"]);
         },
         {"nothing was stored before", "secure_objects.db.tmp goes"},
         ""},
        {[&] { cut("secure_objects.db", 0); }, {"secure_objects.db is empty"}, "app::k1\n"},
        {[&] { cut("secure_objects.db", 51); }, {"a header has 52"}, "app::k1\n"},
        {[&] { cut("secure_objects.db", 60); }, {"is cut: 8 of"}, "app::k1\n"},
        {[&] { flipLastByte(kStore); },
         {"edbk does not decrypt it (-30", "from secure_objects.db.bak"},
         "app::k1\n"},
        // Header fields that nothing vouches for.
        {[&] { set("secure_objects.db", kRowCountOffset, 1); }, {"holds 2 rows, not 1"}, kBoth},
        {[&] { set("secure_objects.db", kRowCountOffset + 1, 9); }, {"2 rows, not 2306"}, kBoth},
        {[&] { set("secure_objects.db", kFlagsOffset, 0); }, {"marked as plaintext"}, kBoth},
        {[&] { set("secure_objects.db", kPayloadLenOffset, 0); }, {"bytes, not 0"}, kBoth},
        {[&] { set("secure_objects.db", kPayloadLenOffset + 2, 1); }, {"its payload has"}, kBoth},
        {[&] { write(kStore, plainStore(kPlainRow, 3)); }, {"holds 1 rows, not 3"}, "app::p\n"},
        {[&] {
             write(kStore, plainStore(kPlainRow, 1));
             set("secure_objects.db", kFlagsOffset, 1);
         },
         {"an answer of the keymaster was lost"},
         "app::p\n"},
        // Keys.
        {[&] { move("edbk", "edbk.bak"); }, {"edbk is missing", "edbk from edbk.bak"}, kBoth},
        {[&] { move("edbk", "edbk.tmp"); }, {"edbk from edbk.tmp"}, kBoth},
        {[&] {
             move("edbk", "edbk.bak");
             write("s/edbk", start_["edbk"] + "x");
         },
         {"edbk is not the key of this store, edbk.bak is"},
         kBoth},
        {[&] { fs::remove("s/edbk_digest"); }, {"edbk_digest is missing"}, kBoth},
        {[&] { cut("edbk_digest", 31); }, {"edbk_digest is not 32 bytes long"}, kBoth},
        {[&] { flipLastByte("s/edbk_digest"); }, {"is not the digest of edbk:"}, kBoth},
        {[&] {  // an upgrade that stopped between key and digest
             done({"--patch-level", "202601", "aliases"});
             const std::string old_digest = text("s/edbk_digest");
             done({"--patch-level", "202602", "--upgrade", "aliases"});
             write("s/edbk_digest", old_digest);
         },
         {"edbk_digest is not the digest of edbk but of edbk.bak"},
         kBoth},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.says[0]);
        put(start_);
        c.damage();
        const Files damaged = files();
        const std::vector<std::string> level = {"--patch-level", "202602", "doctor"};
        const Outcome told = run(level);
        EXPECT_EQ(told.status, 1);
        for (const std::string& words : c.says) {
            EXPECT_NE(told.out.find(words), std::string::npos) << told.out;
        }
        EXPECT_EQ(files(), damaged);

        done({"--patch-level", "202602", "doctor", "--repair"});
        const Files repaired = files();
        for (const auto& [name, content] : damaged) {
            const auto found = repaired.find(name);
            if (found == repaired.end() || found->second != content) {
                EXPECT_EQ(kept()[name], content) << name;
            }
        }
        EXPECT_NE(done({"--patch-level", "202602", "doctor", "--repair"}).find("nothing is wrong"),
                  std::string::npos);
        EXPECT_EQ(files(), repaired);
        EXPECT_EQ(done({"--patch-level", "202602", "--upgrade", "aliases"}), c.aliases);
    }
}

TEST_F(ZelkmDoctor, LeavesAloneWhatItCannotRepair) {
    struct Case {
        std::function<void()> damage;
        std::string says;
        int status;
    };
    const std::vector<Case> cases = {
        {[] {}, "nothing is wrong", 0},
        {[&] { put({}); }, "there is no store", 0},
        {[&] { put({{"secure_objects.db", plainStore("", 0)}}); }, "objects: 0", 0},
        {[&] { write("s/secure_objects.db.tmp", later_.substr(0, 60)); },
         "before its first rename: secure_objects.db.tmp (partial)", 0},
        {[] { fs::remove("s/soft_keymaster_root.key"); }, "no key was tried", 0},
        {[] { write("s/soft_keymaster_root.key", std::string(32, 'x')); },
         "edbk does not decrypt it (-33", 1},
        {[] {
             fs::remove("s/soft_keymaster_root.key");
             move("secure_objects.db", "secure_objects.db.tmp");
         },
         "give the newest whole version its name", 1},
        {[] {
             fs::remove("s/soft_keymaster_root.key");
             flipLastByte("s/edbk_digest");
         },
         "move edbk_digest away", 1},
        {[&] { put({{"secure_objects.db", plainStore("a\x1e\n", 1)}}); }, "row 1 of 1", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.says);
        put(start_);
        c.damage();
        const Files before = files();
        for (const auto& args : {std::vector<std::string>{"doctor", "s"}, {"doctor", "--repair"}}) {
            const Outcome outcome = run(args);
            EXPECT_EQ(outcome.status, c.status);
            EXPECT_NE(outcome.out.find(c.says), std::string::npos) << outcome.out;
        }
        EXPECT_EQ(files(), before);
        EXPECT_TRUE(kept().empty());
    }
    EXPECT_EQ(run({"doctor", "none"}).status, 1);
    EXPECT_EQ(run({"doctor", "s", "t"}).status, 2);
}

// The other commands stay away from what the doctor is for.
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
