// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Loading, replacing and restoring files: each step that can fail, its message, and what is left in
// the directory.

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <iterator>
#include <sstream>

#include "file_faults.h"
#include "kept_reports.h"
#include "operation_peer.h"
#include "results.h"

namespace {

using namespace test;

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
    // The contents of the store, its backup and its temporary file, as "new old -": "-" stands for
    // no file, "()" for an empty one.
    static std::string files() {
        std::string all;
        for (const std::string& name : kNames) {
            const std::string content = std::filesystem::exists(name) ? text(name) : "-";
            all += (all.empty() ? "" : " ") + (content.empty() ? "()" : content);
        }
        return all;
    }
    static void put(const std::string& contents) {
        std::istringstream in(contents);
        for (const std::string& name : kNames) {
            std::string content;
            in >> content;
            std::filesystem::remove(name);
            if (content != "-") {
                test::writeFile(name, bytes(content == "()" ? "" : content));
            }
        }
    }

    static inline const std::string kNames[] = {kStore, kStore + std::string(".bak"),
                                                kStore + std::string(".tmp")};
};

// What comes of each is in tests/data/file_steps.txt (see kept_reports.h). Each message comes
// before the next call, so that a process that is killed has said what went wrong.
TEST_F(ProtectedFile, EachFailingStep) {
    std::string loaded;
    const std::function<Code()> load = [&] {
        uint8_t* data = static_cast<uint8_t*>(std::malloc(1));  // released by the call
        uint32_t len = 99;
        const int status = ZelKeymasterOperation::load_data(kStore, &data, &len);
        loaded = data == nullptr ? "-" : std::string(data, data + len);
        EXPECT_EQ(data == nullptr, len == 0);
        std::free(data);
        return status;
    };
    const std::function<Code()> replace = [] { return update(kStore, "new"); };
    const std::function<Code()> restore = [] { return ZelKeymasterOperation::restoreBackupDB(); };
    const auto is = [](const char* call, const char* suffix = "") {  // of the store's files
        return call + std::string(" ") + kStore + suffix;
    };
    using Fault = std::tuple<std::string, long, int>;
    const Fault remove_backup = {is("unlink", ".bak"), -1, EPERM};
    const Fault keep_backup = {is("rename") + is("", ".bak"), -1, EACCES};
    const Fault remove_current = {is("unlink"), -1, EBUSY};
    const struct {
        const char* name;
        std::function<Code()> action;
        std::string before;
        std::vector<Fault> faults;
    } cases[] = {
        // clang-format off
        {"load", load, "abc - -", {}},
        {"load without a file", load, "- - -", {}},
        {"load an empty file", load, "() - -", {}},
        {"read fails", load, "abc - -", {{"read 3", -1, EIO}}},
        {"short read, error", load, "abc - -", {{"read 3", 2, EIO}}},
        {"short read", load, "abc - -", {{"read 3", 2, 0}}},
        {"size beyond 32 bits", load, "abc - -", {{"lseek end", 0x100000002L, 0}}},
        {"size unknown", load, "abc - -", {{"lseek end", -1, ESPIPE}}},
        {"first version", replace, "- - -", {}},
        {"temporary not opened", replace, "old older left", {{is("open", ".tmp"), -1, EACCES}}},
        {"short write, error", replace, "old older left", {{"write 3", 2, ENOSPC}}},
        {"short write", replace, "old older left", {{"write 3", 2, 0}}},
        {"old backup not removed", replace, "old older -", {remove_backup}},
        {"neither backup removed nor current kept", replace, "old older -",
         {remove_backup, keep_backup}},
        {"current not removed", replace, "old older -", {remove_current}},
        {"current neither kept nor removed", replace, "old older -", {keep_backup, remove_current}},
        {"temporary not moved", replace, "old older -", {{is("rename", ".tmp") + is(""), -1, EIO}}},
        {"restore without a current file", restore, "- good -", {{is("unlink"), -1, ENOENT}}},
        {"restore, current not removed", restore, "bad good -", {{is("unlink"), -1, EPERM}}},
        {"restore, backup not moved", restore, "bad good -",
         {{is("rename", ".bak") + is(""), -1, EIO}}},
        {"restore without a file", restore, "- - -", {}},
        // clang-format on
    };
    const KeptReports kept(ZELKM_TEST_DATA_DIR "/file_steps.txt");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        put(c.before);
        test::clearLog();
        loaded = "";
        FileFaults faults;
        for (const auto& [call, result, error] : c.faults) {
            faults.answer(call, result, error);
        }
        std::vector<size_t> said;  // lines before each call
        faults.before_each = [&said](const FileCall&) {
            said.push_back(test::log().size());
            return Fate::kMade;
        };
        errno = EAGAIN;  // of an earlier call
        const int result = c.action();
        kept.expect(c.name, outcome(result, {{"files", files()}, {"loaded", loaded}}));
        said.push_back(test::log().size());
        const Lines calls = faults.trace();
        for (const auto& fault : c.faults) {
            const auto at = std::find(calls.begin(), calls.end(), std::get<0>(fault));
            ASSERT_NE(calls.end(), at) << std::get<0>(fault);
            const size_t next = size_t(at - calls.begin()) + 1;
            EXPECT_EQ(test::log().empty() ? 0u : 1u, said[next] - said[next - 1]) << *at;
        }
        EXPECT_EQ(std::count_if(faults.calls().begin(), faults.calls().end(),
                                [](const FileCall& call) {
                                    return call.kind() == "open" && call.result >= 0;
                                }),
                  std::count(calls.begin(), calls.end(), "close"));
    }
}

TEST_F(ProtectedFile, DescriptorZeroIsAFileLikeOthers) {
    const std::string content("a\0b", 3);
    test::writeFile("f", bytes(content));
    const int input = ::dup(0);
    ::close(0);
    uint8_t* data = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(0, ZelKeymasterOperation::load_data("f", &data, &len));
    EXPECT_EQ(content, std::string(data, data + len));
    std::free(data);
    EXPECT_EQ(-1, ::close(0));
    ::dup2(input, 0);
    ::close(input);
}

TEST_F(ProtectedFile, LoadRefusesNullArgumentsAndReportsLackOfMemory) {
    test::writeFile("f", bytes("abc"));
    uint8_t* data = static_cast<uint8_t*>(std::malloc(1));
    uint32_t len = 99;
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER,
              ZelKeymasterOperation::load_data(nullptr, &data, &len));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::load_data("f", nullptr, &len));
    EXPECT_EQ(ZELKM_UNEXPECTED_NULL_POINTER, ZelKeymasterOperation::load_data("f", &data, nullptr));
    EXPECT_NE(nullptr, data);
    FileFaults faults;
    faults.answer("lseek end", 0xFFFFFFFFL, 0);
    EXPECT_EQ(ZELKM_MEMORY_ALLOCATION_FAILED, ZelKeymasterOperation::load_data("f", &data, &len));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(99u, len);
    EXPECT_EQ(Lines(), test::log());
}

// device_costs_test has the order of all calls.
TEST_F(ProtectedFile, ReplacesPrivatelyAndFlushesContentAndNames) {
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    g_flushed.clear();
    const auto before = descriptors();
    ASSERT_EQ(0, update("f", "new"));
    EXPECT_EQ((Lines{"content of f.tmp",
                     "all of " + std::filesystem::current_path().filename().string()}),
              g_flushed);
    EXPECT_EQ(before, descriptors());
    struct stat status = {};
    ASSERT_EQ(0, ::stat("f", &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
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
    EXPECT_EQ("2", text(kStore));
}

}  // namespace
