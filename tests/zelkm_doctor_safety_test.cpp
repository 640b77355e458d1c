// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The tool on directories that somebody else is changing. Root's tool does for the owner only what
// the owner could have done.

#include <atomic>
#include <thread>

#include "damaged_store.h"

namespace {

namespace fs = std::filesystem;
using namespace test;

constexpr uid_t kOwner = 65534;

// Root repairs what belongs to somebody else, who swaps links for what the doctor makes.
class ZelkmAsRoot : public DamagedStore {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        fs::create_directory("roots");
        for (const char* name : {"secure_objects.db", "secure_objects.db.tmp", "file"}) {
            write(std::string("roots/") + name, "root's");
            ::chmod((std::string("roots/") + name).c_str(), 0600);
        }
    }

    static void give() {
        EXPECT_EQ(0, std::system(("chown -Rh " + std::to_string(kOwner) + " s").c_str()));
    }

    static void expectUntouched() {
        for (const auto& entry : fs::directory_iterator("roots")) {
            struct stat status = {};
            EXPECT_EQ(0, ::stat(entry.path().c_str(), &status));
            EXPECT_EQ(status.st_uid, 0u) << entry.path();
            EXPECT_EQ(text(entry.path()), "root's") << entry.path();
        }
        EXPECT_EQ(std::distance(fs::directory_iterator("roots"), {}), 3);
    }
};

TEST_F(ZelkmAsRoot, ActsAsTheDirectorysOwner) {
    interrupt();
    fs::create_symlink("../roots/file", "s/secure_objects.db.doctor");
    give();
    done({"doctor", "--repair"});
    for (const auto& entry : fs::recursive_directory_iterator("s")) {
        struct stat status = {};
        EXPECT_EQ(0, ::lstat(entry.path().c_str(), &status));
        EXPECT_EQ(status.st_uid, kOwner) << entry.path();
    }
    expectUntouched();

    // The tool does not read for the owner what the owner cannot read.
    write("s/edbk", "root's");
    ::chown("s/edbk", 0, 0);
    ::chmod("s/edbk", 0600);
    const Outcome outcome = run({"doctor", "--repair"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("wrong: unreadable: edbk"), outcome.out.npos) << outcome.out;
    EXPECT_EQ(text("s/edbk"), "root's");
}

TEST_F(ZelkmAsRoot, FollowsNoLinkThatIsSwappedIn) {
    const fs::path roots = fs::absolute("roots");
    const fs::path store = fs::absolute("s");
    for (int round = 0; round < 30; ++round) {
        put(start_);
        interrupt();
        give();
        std::atomic<bool> stop = false;
        std::thread attacker([&] {
            std::error_code ignored;
            while (!stop) {
                fs::create_symlink(roots / "file", store / "link", ignored);
                if (fs::exists(store / "secure_objects.db.doctor", ignored)) {
                    fs::rename(store / "link", store / "secure_objects.db.doctor", ignored);
                }
                for (const auto& entry : fs::directory_iterator(store, ignored)) {
                    const std::string name = entry.path().filename();
                    if (name.rfind("doctor-", 0) == 0 && entry.is_directory(ignored) &&
                        !entry.is_symlink(ignored)) {
                        fs::rename(entry.path(), store / "away", ignored);
                        fs::create_directory_symlink(roots, entry.path(), ignored);
                    }
                }
            }
        });
        run({"doctor", "--repair"});
        stop = true;
        attacker.join();
        expectUntouched();
    }
}

TEST_F(ZelkmAsRoot, WritesAndReadsOnlyWhatTheOwnerCould) {
    const fs::path roots = fs::absolute("roots");
    const std::vector<std::vector<std::string>> commands = {
        {"add", "--alias", "n", "--creator", "c"},
        {"import", "more.csv"},
        {"remove", "--where", "ALIAS=k1"},
        {"query", "INSERT (ALIAS) VALUE (q)"},
        {"list", "--patch-level", "203001", "--upgrade"},
        {"csr", "--out", "s/request"}};
    write("more.csv", "ALIAS,CREATOR\nx,y\n");
    for (int round = 0; round < 60; ++round) {
        put(start_);
        give();
        std::atomic<bool> stop = false;
        std::thread attacker([&] {
            std::error_code ignored;
            while (!stop) {
                for (const char* name : {"secure_objects.db.tmp", "edbk.tmp", "edbk_digest.tmp"}) {
                    fs::create_symlink(roots / "file", "link", ignored);
                    fs::rename("link", fs::path("s") / name, ignored);
                }
                for (const auto& entry : fs::directory_iterator("s", ignored)) {
                    if (entry.path().filename().string().rfind("request", 0) == 0) {
                        write("bait", "");
                        ::chown("bait", kOwner, 0);
                        fs::rename("bait", entry.path(), ignored);
                    }
                }
            }
        });
        run(commands[static_cast<size_t>(round) % commands.size()]);
        stop = true;
        attacker.join();
        expectUntouched();
        for (const auto& entry : fs::directory_iterator("s")) {
            struct stat status = {};
            ASSERT_EQ(0, ::lstat(entry.path().c_str(), &status));
            const bool request = entry.path().filename().string().rfind("request", 0) == 0;
            EXPECT_TRUE(status.st_uid == kOwner || entry.is_symlink() || request) << entry.path();
            EXPECT_TRUE(!request || status.st_uid == 0 || status.st_size == 0) << entry.path();
        }
    }
}

TEST_F(ZelkmAsRoot, TakesNoRightsOfOthersAndFollowsNoLinkOfTheirs) {
    constexpr gid_t kShadow = 42;
    give();
    write("s/zelko_err.txt", "0nly for shadow");
    ::chown("s/zelko_err.txt", 0, kShadow);
    ::chmod("s/zelko_err.txt", 0640);
    ::chown("s", kOwner, kShadow);
    const Outcome info = run({"info"});
    EXPECT_NE(info.out.find("zelko_err.txt: unreadable"), info.out.npos) << info.out;
    EXPECT_EQ(info.out.find("0nly"), info.out.npos);
    fs::remove("s/zelko_err.txt");
    EXPECT_EQ(done({"aliases"}), kBoth);
    ::chmod("s", 02775);
    EXPECT_TRUE(run({"aliases"}).says("its group may change it"));

    fs::create_directory("mine");
    fs::create_symlink("mine", "link");
    for (const std::string path : {"link", "link/", "link/."}) {
        EXPECT_EQ(done({"aliases", "--dir=" + path}), "");
        ::lchown("link", kOwner, 0);
        for (const std::string command : {"aliases", "info", "doctor"}) {
            EXPECT_TRUE(run({command, "--dir=" + path}).says("is a link of another user")) << path;
        }
        ::lchown("link", 0, 0);
    }
}

}  // namespace
