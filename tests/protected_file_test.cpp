// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Loading, replacing and restoring files: each step that can fail, its message, and what is left in
// the directory.

#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "file_faults.h"
#include "operation_peer.h"
#include "results.h"

namespace {

using namespace test;

constexpr char kStore[] = "secure_objects.db";

Lines g_flushed;

int flushed(const char* how, int fd) {
    std::error_code none;
    const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
    g_flushed.push_back(how + path.filename().string());
    return 0;
}

}  // namespace

extern "C" {

int __wrap_fdatasync(int fd) {
    return flushed("content of ", fd);
}
int __wrap_fsync(int fd) {
    return flushed("all of ", fd);
}

}  // extern "C"

namespace {

class ProtectedFile : public test::InTempDir {
  protected:
    static Code update(const std::string& path, const std::string& content) {
        const Bytes data = bytes(content);
        return ZelKeymasterOperation::update_file(path.c_str(), data.data(), uint32_t(data.size()));
    }
    // "-" stands for a missing file.
    static std::string contentOf(const std::string& path) {
        return std::filesystem::exists(path) ? text(path) : "-";
    }
    static void put(const std::string& path, const std::string& content) {
        if (content != "-") {
            test::writeFile(path, bytes(content));
        }
    }
};

TEST_F(ProtectedFile, LoadsWholeFilesAndTreatsUnusableOnesAsMissing) {
    const std::string no_file = "W object: no file f";
    const std::string unreadable = "E object: file read fail: ";
    const std::string with_nul("a\0b\n", 4);
    const struct {
        const char* name;
        std::string content;
        std::string call;  // returns `result` and `error`
        long result;
        int error;
        std::string loaded;
        Lines log;
    } cases[] = {
        // clang-format off
        {"whole", with_nul, "", 0, 0, with_nul, {}},
        {"no file", "-", "", 0, 0, "", {no_file}},
        {"empty file", "", "", 0, 0, "", {}},
        {"read fails", "abc", "read 3", -1, EIO, "", {unreadable + "Input/output error(5)"}},
        {"short read, error", "abc", "read 3", 2, EIO, "", {unreadable + "Input/output error(5)"}},
        {"short read", "abc", "read 3", 2, 0, "", {unreadable + "Success(0)"}},
        {"size beyond 32 bits", "abc", "lseek end", 0x100000002L, 0, "ab", {}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove("f");
        put("f", c.content);
        FileFaults faults;
        if (!c.call.empty()) {
            faults.answer(c.call, c.result, c.error);
        }
        errno = EAGAIN;  // of an earlier call
        test::clearLog();
        uint8_t* data = static_cast<uint8_t*>(std::malloc(1));  // released by the call
        uint32_t len = 99;
        EXPECT_EQ(0, ZelKeymasterOperation::load_data("f", &data, &len));
        EXPECT_EQ(c.loaded, std::string(data, data + len));
        EXPECT_EQ(c.loaded.empty(), data == nullptr);
        EXPECT_EQ(c.log, test::log());
        const Lines& trace = faults.trace();
        EXPECT_EQ(c.content != "-", std::find(trace.begin(), trace.end(), "close") != trace.end());
        std::free(data);
    }
}

TEST_F(ProtectedFile, DescriptorZeroIsAFileLikeOthers) {
    put("f", "abc");
    const int input = ::dup(0);
    ::close(0);
    uint8_t* data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(0, ZelKeymasterOperation::load_data("f", &data, &len));
    EXPECT_EQ("abc", std::string(data, data + len));
    std::free(data);
    EXPECT_EQ(-1, ::close(0));
    ::dup2(input, 0);
    ::close(input);
}

TEST_F(ProtectedFile, LoadRefusesNullArgumentsAndReportsLackOfMemory) {
    put("f", "abc");
    uint8_t* data = static_cast<uint8_t*>(std::malloc(1));
    uint32_t len = 99;
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER,
              ZelKeymasterOperation::load_data(nullptr, &data, &len));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::load_data("f", nullptr, &len));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::load_data("f", &data, nullptr));
    EXPECT_NE(nullptr, data);
    const test::FilesTooLarge large;
    EXPECT_EQ(ZELKM_MEMORY_ALLOCATION_FAILED, ZelKeymasterOperation::load_data("f", &data, &len));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(99u, len);
    EXPECT_EQ(Lines(), test::log());
}

TEST_F(ProtectedFile, ReplacesPrivatelyAndFlushesDataBeforeTheNames) {
    Lines order;
    {
        FileFaults faults;
        ASSERT_EQ(0, update("f", "new"));
        EXPECT_EQ(Lines(), test::log());  // nothing there before is no failure
        for (const std::string& call : faults.trace()) {
            if (call == "write 3" || call == "rename f.tmp f" || call.rfind("flush", 0) == 0) {
                order.push_back(call);
            }
        }
    }
    EXPECT_EQ((Lines{"write 3", "flush file", "rename f.tmp f", "flush directory"}), order);
    struct stat status = {};
    ASSERT_EQ(0, ::stat("f", &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);

    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = descriptors();
    g_flushed.clear();
    ASSERT_EQ(0, update("f", "newer"));
    EXPECT_EQ((Lines{"content of f.tmp",
                     "all of " + std::filesystem::current_path().filename().string()}),
              g_flushed);
    EXPECT_EQ(before, descriptors());
}

TEST_F(ProtectedFile, EachFailingStepOfAReplacement) {
    const std::string not_removed =
        "W object: fail to remove backup file: Operation not permitted(1)";
    const std::string not_kept =
        "W object: fail to rename to the backup file: Permission denied(13)";
    const std::string not_open = "E object: file open: Permission denied(13)";
    const std::string not_written = "E object: file write fail: No space left on device(28)";
    const std::string cut_short = "E object: file write fail: Success(0)";
    const std::string not_gone = "E object: fail unlink: Device or resource busy(16)";
    const std::string not_moved = "E object: fail rename: Input/output error(5)";
    using Fault = std::tuple<std::string, long, int>;
    const Fault remove_backup = {"unlink f.bak", -1, EPERM};
    const Fault keep_backup = {"rename f f.bak", -1, EACCES};
    const Fault remove_current = {"unlink f", -1, EBUSY};
    const struct {
        const char* name;
        std::vector<Fault> faults;
        int result;
        Lines log;
        std::string current, backup, temporary;
    } cases[] = {
        // clang-format off
        {"temporary not opened", {{"open f.tmp", -1, EACCES}}, ZELKM_UNKNOWN_ERROR, {not_open},
         "old", "older", "left over"},
        {"short write, error", {{"write 3", 2, ENOSPC}}, ZELKM_UNKNOWN_ERROR, {not_written}, "old",
         "older", ""},
        {"short write", {{"write 3", 2, 0}}, ZELKM_UNKNOWN_ERROR, {cut_short}, "old", "older", ""},
        {"old backup not removed", {remove_backup}, 0, {not_removed}, "new", "old", "-"},
        {"neither backup removed nor current kept", {remove_backup, keep_backup}, 0, {not_removed,
         not_kept}, "new", "older", "-"},
        {"current not removed", {remove_current}, ZELKM_UNKNOWN_ERROR, {not_gone}, "-", "old",
         "new"},
        {"current neither kept nor removed", {keep_backup, remove_current}, ZELKM_UNKNOWN_ERROR,
         {not_kept, not_gone}, "old", "-", "new"},
        {"temporary not moved", {{"rename f.tmp f", -1, EIO}}, ZELKM_UNKNOWN_ERROR, {not_moved},
         "-", "old", "new"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        put("f.tmp", "left over");
        put("f", "old");
        put("f.bak", "older");
        test::clearLog();
        FileFaults faults;
        for (const auto& [call, result, error] : c.faults) {
            faults.answer(call, result, error);
        }
        errno = EAGAIN;  // of an earlier call
        EXPECT_EQ(named(c.result), named(update("f", "new")));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(c.current, contentOf("f"));
        EXPECT_EQ(c.backup, contentOf("f.bak"));
        EXPECT_EQ(c.temporary, contentOf("f.tmp"));
    }
}

// Each message comes before the next call, so that a process that is killed has said what went
// wrong.
TEST_F(ProtectedFile, SaysEachFailureBeforeTheNextCall) {
    const std::string store = kStore;
    const struct {
        std::string failing, before;  // of calls
        std::function<void()> action;
    } cases[] = {
        {"read 3", "close",
         [] {
             uint8_t* data = nullptr;
             uint32_t len = 0;
             EXPECT_EQ(0, ZelKeymasterOperation::load_data(kStore, &data, &len));
         }},
        {"write 3", "close", [] { EXPECT_EQ(ZELKM_UNKNOWN_ERROR, update(kStore, "new")); }},
        {"unlink " + store + ".bak", "rename " + store + " " + store + ".bak",
         [] { EXPECT_EQ(0, update(kStore, "new")); }},
        {"rename " + store + " " + store + ".bak", "unlink " + store,
         [] { EXPECT_EQ(0, update(kStore, "new")); }},
        {"unlink " + store, "rename " + store + ".bak " + store,
         [] { EXPECT_EQ(0, ZelKeymasterOperation::restoreBackupDB()); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failing);
        put(store, "old");
        put(store + ".bak", "older");
        const bool missing = c.failing == "unlink " + store;
        test::clearLog();
        FileFaults faults;
        faults.answer(c.failing, -1, missing ? ENOENT : EIO);
        std::vector<size_t> lines;  // logged before each call
        faults.before_each = [&lines](const FileCall&) {
            lines.push_back(test::log().size());
            return Fate::kMade;
        };
        c.action();
        const Lines& calls = faults.trace();
        const auto at = [&](const std::string& call) {
            return lines.at(size_t(std::find(calls.begin(), calls.end(), call) - calls.begin()));
        };
        EXPECT_EQ(0u, at(c.failing));
        EXPECT_EQ(1u, at(c.before));
        EXPECT_EQ(1u, test::log().size());
    }
}

TEST_F(ProtectedFile, UpdateRefusesNullAndEmptyAndCutsLongNames) {
    const uint8_t data[] = {1};
    FileFaults faults;
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::update_file(nullptr, data, 1));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::update_file("f", nullptr, 1));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::update_file("f", data, 0));
    EXPECT_EQ(Lines(), faults.trace());

    const std::string name(251, 'n');
    ASSERT_EQ(0, update(name, "new"));
    EXPECT_EQ("open " + name + ".tm", faults.trace()[0]);
}

TEST_F(ProtectedFile, UpdateDbFileAdoptsTheImageOnSuccessOnly) {
    const test::ObjectPtr object = test::makeObject(nullptr, false);
    const test::ObjectPeer peer(*object);
    const auto allocated = [](char byte) {
        uint8_t* data = static_cast<uint8_t*>(std::malloc(1));
        *data = static_cast<uint8_t>(byte);
        return data;
    };
    EXPECT_EQ(0, object->update_db_file(allocated('1'), 1));
    EXPECT_EQ(0, object->update_db_file(allocated('2'), 1));  // releases the first
    EXPECT_EQ(0, object->update_db_file(peer.imageData(), 1));
    FileFaults faults;
    faults.fail("open secure_objects.db.tmp", ENOSPC);
    uint8_t* kept = allocated('3');
    EXPECT_EQ(ZELKM_UNKNOWN_ERROR, object->update_db_file(kept, 1));
    std::free(kept);
    EXPECT_EQ(bytes("2"), peer.image());
    EXPECT_EQ("2", contentOf(kStore));
}

TEST_F(ProtectedFile, RestoresTheBackup) {
    const std::string store = kStore;
    const std::string missing = "D object: no secure object file";
    const std::string kept = "E object: fail unlink during restore: Operation not permitted(1)";
    const std::string not_moved = "E object: fail rename during restore:";
    const std::string move = "rename " + store + ".bak " + store;
    const std::string no_backup = not_moved + "No such file or directory(2)";
    const struct {
        const char* name;
        std::string current, backup, call;
        int error;
        int result;
        Lines log;
        std::string restored;
    } cases[] = {
        // clang-format off
        {"no current file", "-", "good", "", 0, 0, {missing}, "good"},
        {"current not removed", "bad", "good", "unlink " + store, EPERM, ZELKM_UNKNOWN_ERROR,
         {kept}, "bad"},
        {"backup not moved", "bad", "good", move, EIO, ZELKM_UNKNOWN_ERROR,
         {not_moved + "Input/output error(5)"}, "-"},
        {"no file at all", "-", "-", "", 0, ZELKM_UNKNOWN_ERROR, {missing, no_backup}, "-"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(store);
        std::filesystem::remove(store + ".bak");
        put(store, c.current);
        put(store + ".bak", c.backup);
        test::clearLog();
        FileFaults faults;
        if (!c.call.empty()) {
            faults.fail(c.call, c.error);
        }
        EXPECT_EQ(named(c.result), named(ZelKeymasterOperation::restoreBackupDB()));
        EXPECT_EQ(c.log, test::log());
        EXPECT_EQ(c.restored, contentOf(store));
    }
}

}  // namespace
