// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every file call of every operation has its turn: it fails, alone or with all later ones of its
// kind, or it ends the process, or the power is cut after it. Each time the directory must still
// hold a whole store and a key that decrypts it. Both may be the old ones or the new ones, under
// their own names, as backups, or as complete temporary files.
//
// Each try runs on a copy of a prepared directory, in a child process with an engine of its own.

#include <soft_keymaster/soft_keymaster.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "child.h"
#include "fault_loop.h"
#include "file_faults.h"
#include "store_fixture.h"

// A function of the leak sanitizer, where that is linked in. A child exits without its usual check.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

namespace fs = std::filesystem;
using soft_keymaster::SoftKeymaster;
using test::Bytes;
using test::Fate;
using test::FileCall;
using test::FileFaults;

using test::kStore;
constexpr char kRootKey[] = "root_key";
constexpr int kDied = 99;     // exit status of a child that a fault ended
constexpr int kLeaked = 98;   // of one whose operation left memory behind
constexpr int kFinished = 0;  // of one whose operation ended, with any result

// ---- Operations ---------------------------------------------------------------------------------

SoftKeymaster::Options options(uint32_t patch_level) {
    SoftKeymaster::Options result = test::storeOptions();
    result.patch_level = patch_level;
    return result;
}

// What the backup holds after two inserts.
constexpr char kBackupRows[] = "a ";

// What the operation did on its own to a store or key that it took for broken. Both repairs are old
// behaviour, and one failing file call can cause them:
//  - A new key replaces a key file that cannot be read. The new key does not open the store, so the
//    store's backup is put in place.
//  - A key file that is lost in the middle of an upgrade does not match its digest. It is replaced
//    with the same consequence.
enum Repair { kNoRepair, kBackupRestored, kKeyReplaced };

Repair repairDone() {
    if (test::logged("E object: key blob is corrupted. regard the key file is broken and "
                     "regenerate key")) {
        return kKeyReplaced;
    }
    return test::logged("E object: restore the stored db. need to restart keystore")
               ? kBackupRestored
               : kNoRepair;
}

struct Operation {
    std::string name;
    std::function<void()> prepare;  // fills the directory, in a child, without faults
    std::function<void()> run;
    std::string before;  // the aliases that the store holds
    std::string after;
    std::string from_empty;  // the aliases afterwards, when the store file could not be read
};

void ignore(int) {}

std::vector<Operation> operations() {
    const auto with = [](std::function<void(ZelKeymasterOperation&)> steps, uint32_t level = 1) {
        return [steps, level] {
            SoftKeymaster km(options(level));
            steps(*test::makeObject(&km, true));
        };
    };
    const auto insert = [with](const char* alias, uint32_t level = 1) {
        return with([alias](auto& o) { ignore(test::insertAlias(o, alias)); }, level);
    };
    const auto two_rows =
        with([](auto& o) { ignore(test::insertAlias(o, "a")), ignore(test::insertAlias(o, "b")); });
    return {
        {"first insert", [] {}, insert("a"), "", "a ", "a "},
        {"insert", two_rows, insert("c"), "a b ", "a b c ", "c "},
        {"delete", two_rows, with([](auto& o) { ignore(test::removeAlias(o, "a")); }), "a b ", "b ",
         ""},
        {"key upgrade", two_rows, insert("c", 2), "a b ", "a b c ", "c "},
        {"repair",
         [two_rows] {
             two_rows();
             Bytes store = *test::readFile(kStore);
             store.back() ^= 1;
             test::writeFile(kStore, store);
         },
         with([](auto& o) { test::readAliases(o); }), "a ", "a ", ""},
    };
}

// ---- Faults -------------------------------------------------------------------------------------

// What becomes of the call with the number `nth`. All others are made, except that after
// kFailFromThen the later ones of its kind fail as well.
struct Plan {
    enum Kind { kFail, kFailFromThen, kShort, kExit };
    Kind kind;
    int error;
    int nth = 0;
};

// Lets the file calls fail as planned, and counts them.
void carryOut(const Plan& plan, FileFaults* faults) {
    faults->before_each = [plan, faults, failing = std::string()](const FileCall& call) mutable {
        const bool now = faults->calls().size() == size_t(plan.nth);
        if (now && plan.kind == Plan::kExit) {
            _exit(kDied);
        }
        if (now && plan.kind == Plan::kShort) {
            return Fate::kShort;
        }
        if (now && plan.kind == Plan::kFailFromThen) {
            failing = call.kind();
        }
        if (!now && call.kind() != failing) {
            return Fate::kMade;
        }
        errno = plan.error;
        return Fate::kFails;
    };
}

// ---- Children -----------------------------------------------------------------------------------

// Runs `action` in a child whose working directory is `directory`. Returns its exit status, or -1
// when a signal ended it, and in `answer` what the action returned.
int inChild(const fs::path& directory, const std::function<std::string()>& action,
            std::string* answer = nullptr) {
    const fs::path file = directory.parent_path() / "answer";
    fs::remove(file);
    const int status = test::runInChild([&] {
        fs::current_path(directory);
        test::writeFile(file, test::bytes(action()));
        return kFinished;
    });
    if (answer != nullptr) {
        *answer = test::text(file);
    }
    return status;
}

using Files = std::map<std::string, Bytes>;

Files filesIn(const fs::path& directory) {
    Files files;
    for (const auto& file : fs::directory_iterator(directory)) {
        const std::string name = file.path().filename();
        if (name.rfind("zelko_err", 0) != 0) {
            files[name] = *test::readFile(file.path());
        }
    }
    return files;
}

void put(const fs::path& directory, const Files& files) {
    fs::remove_all(directory);
    fs::create_directory(directory);
    for (const auto& [name, content] : files) {
        test::writeFile(directory / name, content);
        fs::permissions(directory / name, fs::perms(0600));
    }
}

// What a new process reads among these files: the aliases, or the result code.
std::string readBack(const Files& files) {
    static std::map<Files, std::string> known;
    const auto [found, is_new] = known.emplace(files, "");
    if (is_new) {
        const fs::path directory = fs::current_path() / "scratch";
        put(directory, files);
        const int status = inChild(
            directory,
            [] {
                SoftKeymaster km(options(2));
                return test::readAliases(*test::makeObject(&km, true));
            },
            &found->second);
        if (status != kFinished) {
            found->second = "crash " + std::to_string(status);
        }
    }
    return found->second;
}

// ---- The promise --------------------------------------------------------------------------------

class FileFault : public test::InTempDir {
  protected:
    // Runs an operation in this process: the children then inherit a libcrypto that is set up and,
    // under an emulator, code that is translated. They take a tenth of the time.
    FileFault() {
        const Operation upgrade = operations()[3];
        fs::create_directory("warm");
        fs::current_path("warm");
        upgrade.prepare();
        upgrade.run();
        fs::current_path(directory());
        test::forgetTable();
    }

    fs::path tried() const { return directory() / "tried"; }

    void prepare(const Operation& operation) {
        put(tried(), {{kRootKey, Bytes(32, 7)}});
        ASSERT_EQ(kFinished, inChild(tried(), [&] { return operation.prepare(), ""; }));
        prepared_ = filesIn(tried());
    }

    // Whether some version of the store opens with some version of the key, with the right content.
    bool holdsWholeVersion(const Files& files, const Operation& operation, Repair repair) {
        if (operation.before.empty() && prepared_.count(kStore) == 0) {
            return true;  // there was nothing to lose
        }
        if (repair == kKeyReplaced) {
            return files.count(kStore) != 0 && files.at(kStore) == prepared_[kStore];
        }
        for (const std::string store : {"", ".bak", ".tmp"}) {
            for (const std::string key : {"", ".bak", ".tmp"}) {
                if (files.count(kStore + store) == 0 || files.count("edbk" + key) == 0) {
                    continue;
                }
                const std::string rows = readBack({{kStore, files.at(kStore + store)},
                                                   {"edbk", files.at("edbk" + key)},
                                                   {kRootKey, files.at(kRootKey)}});
                if (rows == operation.before || rows == operation.after ||
                    (repair == kBackupRestored && rows == kBackupRows)) {
                    return true;
                }
            }
        }
        return false;
    }

    // Checks the promise for the files that a fault left behind.
    void check(const Files& files, const Operation& operation, Repair repair = kNoRepair) {
        EXPECT_TRUE(holdsWholeVersion(files, operation, repair))
            << "no store among the files opens with a key among them";
        std::set<std::string> allowed = {operation.before,
                                         operation.after,
                                         operation.from_empty,
                                         "",  // the store starts empty between the renames
                                         test::kNotVerified,
                                         test::refusal(ZELKM_INVALID_ARGUMENT)};
        if (repair != kNoRepair) {
            allowed.insert(kBackupRows);
        }
        const std::string opened = readBack(files);
        EXPECT_TRUE(allowed.count(opened) != 0) << "a new process reads: " << opened;
    }

    Files prepared_;
};

// Runs the operation under a plan in this directory. Returns the child's exit status, how many file
// calls it made, and its repair.
int runWithPlan(const fs::path& directory, const Operation& operation, const Plan& plan, int* calls,
                Repair* repair) {
    std::string answer;
    const int status = inChild(
        directory,
        [&] {
            FileFaults faults;
            carryOut(plan, &faults);
            operation.run();
            if (__lsan_do_recoverable_leak_check != nullptr &&
                __lsan_do_recoverable_leak_check() != 0) {
                _exit(kLeaked);
            }
            return std::to_string(faults.calls().size()) + " " + std::to_string(repairDone());
        },
        &answer);
    *calls = status == kFinished ? std::stoi(answer) : 0;
    *repair = status == kFinished ? static_cast<Repair>(answer.back() - '0') : kNoRepair;
    return status;
}

TEST_F(FileFault, FailedCallsAndKilledProcessesLoseNothing) {
    std::vector<std::pair<std::string, Plan>> kinds = {
        {"exit", {Plan::kExit, 0}},
        {"short", {Plan::kShort, 0}},
        {"no such call any more", {Plan::kFailFromThen, EIO}}};
    for (const int error : {EIO, ENOSPC, EACCES, EINTR}) {
        kinds.push_back({std::strerror(error), {Plan::kFail, error}});
    }
    int states = 0;
    for (const Operation& operation : operations()) {
        prepare(operation);
        for (const auto& [kind, fault] : kinds) {
            states += test::untilNothingFails(
                operation.name + ", " + kind + " at call", [&, plan = fault](long nth) mutable {
                    put(tried(), prepared_);
                    plan.nth = int(nth);
                    int calls = 0;
                    Repair repair = kNoRepair;
                    const int status = runWithPlan(tried(), operation, plan, &calls, &repair);
                    EXPECT_TRUE(status == kFinished ||
                                (plan.kind == Plan::kExit && status == kDied))
                        << status;
                    check(filesIn(tried()), operation, repair);
                    return status == kDied || nth < calls;
                });
        }
    }
    std::printf("states after a failed call or a killed process: %d\n", states);
}

// ---- Power cuts ---------------------------------------------------------------------------------

// A directory as memory sees it and as the device may see it. Entries point to contents. Changes of
// entries reach the device in order. A content is only sure to be there once it is flushed.
struct Disk {
    std::map<std::string, std::shared_ptr<Bytes>> entries;
    std::vector<std::function<void(decltype(entries)&)>> pending;  // changes of entries
    std::set<std::shared_ptr<Bytes>> unflushed;
    decltype(entries) durable;

    void apply(const FileCall& call) {
        const auto change = [this](std::function<void(decltype(entries)&)> step) {
            step(entries);
            pending.push_back(std::move(step));
        };
        if (call.creates) {
            // A file that is there already is cut to length 0: its content is then unflushed.
            const auto content = std::make_shared<Bytes>();
            unflushed.insert(content);
            change([=](auto& e) { e[call.path] = content; });
        } else if (call.kind() == "write") {
            *entries[call.path] = call.data;
        } else if (call.text == "flush file") {
            unflushed.erase(entries[call.path]);
        } else if (call.text == "flush directory") {
            durable = entries;
            pending.clear();
        } else if (call.kind() == "rename") {
            change([=](auto& e) {
                if (const auto node = e.extract(call.path)) {
                    e[call.to] = node.mapped();
                }
            });
        } else if (call.kind() == "unlink") {
            change([=](auto& e) { e.erase(call.path); });
        }
    }

    // What the device may hold: all durable entries, the first `kept` pending changes, and
    // numerator / 2 of each unflushed content.
    Files after(size_t kept, size_t numerator) const {
        auto shown = durable;
        for (size_t i = 0; i < kept; ++i) {
            pending[i](shown);
        }
        Files files;
        for (const auto& [name, content] : shown) {
            files[name] = *content;
            if (unflushed.count(content) != 0) {
                files[name].resize(content->size() * numerator / 2);
            }
        }
        return files;
    }
};

// The calls of an operation that change the directory or bring it to the device.
std::vector<FileCall> changesOf(const Operation& operation, const fs::path& directory) {
    const fs::path before = fs::current_path();
    fs::current_path(directory);
    FileFaults recorder;
    operation.run();
    fs::current_path(before);
    test::forgetTable();
    std::vector<FileCall> changes;
    for (const FileCall& call : recorder.calls()) {
        const std::string kind = call.kind();
        const bool writes = kind == "write" || kind == "flush";
        if (call.creates || writes ||
            ((kind == "rename" || kind == "unlink") && call.result == 0)) {
            changes.push_back(call);
        }
    }
    return changes;
}

TEST_F(FileFault, PowerCutsLoseNothing) {
    int states = 0;
    for (const Operation& operation : operations()) {
        prepare(operation);
        const std::vector<FileCall> changes = changesOf(operation, tried());
        ASSERT_FALSE(changes.empty()) << operation.name;
        Disk disk;
        for (const auto& [name, content] : prepared_) {
            disk.entries[name] = std::make_shared<Bytes>(content);
        }
        disk.durable = disk.entries;
        for (size_t at = 0; at <= changes.size(); ++at) {
            for (size_t kept = 0; kept <= disk.pending.size(); ++kept) {
                for (const size_t numerator : {0u, 1u, 2u}) {
                    SCOPED_TRACE(operation.name + ", power cut after '" +
                                 (at == 0 ? "" : changes[at - 1].text) + "' (change " +
                                 std::to_string(at) + "); on the device are " +
                                 std::to_string(kept) + " of the latest changes of names, and " +
                                 std::to_string(numerator) +
                                 "/2 of each content that was not flushed");
                    check(disk.after(kept, numerator), operation);
                    ++states;
                }
            }
            if (at < changes.size()) {
                disk.apply(changes[at]);
            }
        }
        EXPECT_TRUE(disk.pending.empty()) << operation.name << ": done, and not on the device";
    }
    std::printf("states after a power cut: %d\n", states);
}

}  // namespace
