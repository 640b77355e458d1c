// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every file call of every operation, in turn, fails, alone or with all later ones of its kind,
// ends the process, or is the last one before a power cut. After each, the directory must still
// hold a whole store and a key that decrypts it, old or new: under the files' own names, as
// backups, or as complete temporary files.
//
// Each try runs in a child process of its own, on a copy of a prepared directory, since the
// engine's table is the process's.

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
#include "file_calls.h"
#include "operation_peer.h"

// The leak sanitizer's, where it is linked in: a child leaves without its usual check.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace {

namespace fs = std::filesystem;
using soft_keymaster::SoftKeymaster;
using test::Bytes;
using zelkm::FileCalls;
using zelkm::g_file_calls;

constexpr char kStore[] = "secure_objects.db";
constexpr char kRootKey[] = "root_key";
constexpr int kDied = 99;     // exit status of a child that a fault ended
constexpr int kLeaked = 98;   // its operation left memory behind
constexpr int kFinished = 0;  // its operation came to an end, whatever the result

// ---- Operations ---------------------------------------------------------------------------------

SoftKeymaster::Options options(uint32_t patch_level) {
    SoftKeymaster::Options result;
    result.root_key_path = kRootKey;
    result.patch_level = patch_level;
    return result;
}

int insert(ZelKeymasterOperation& object, std::string alias) {
    SODOperationParam p;
    std::string creator = "creator";
    return object.SodInsert(p.setAlias(alias).setCreator(creator));
}

int remove(ZelKeymasterOperation& object, std::string alias) {
    SODOperationParam p;
    return object.SodDelete(p.addAliasInWhere(alias));
}

std::vector<std::string> aliases(ZelKeymasterOperation& object, int* status) {
    SODOperationParam p;
    std::vector<std::string> rows;
    *status = object.SodRetreiveOther(p.addAliasToOutput(), rows);
    return rows;
}

// What the backup holds after two inserts.
constexpr char kBackupRows[] = "a ";

// What the operation did on its own to a store or key that it took for broken. Both are what it has
// always done, and a file call that fails at the wrong moment is enough:
//  - a key file that cannot be read is replaced by a new key, which does not open the store; the
//    store's backup is then put in place;
//  - a key file that is lost in the middle of an upgrade does not match its digest, with the same
//  end.
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
    std::function<void()> prepare;  // makes the directory, in a child, without faults
    std::function<void()> run;
    std::vector<std::string> before;  // the aliases that the store holds
    std::vector<std::string> after;
    std::vector<std::string> from_empty;  // after, when the store file could not be read
};

void ignore(int) {}

std::vector<Operation> operations() {
    const auto with = [](std::function<void(ZelKeymasterOperation&)> steps, uint32_t level = 1) {
        return [steps, level] {
            SoftKeymaster km(options(level));
            steps(*test::makeObject(&km, true));
        };
    };
    const auto two_rows = with([](auto& o) { ignore(insert(o, "a")), ignore(insert(o, "b")); });
    return {
        {"first insert", [] {}, with([](auto& o) { ignore(insert(o, "a")); }), {}, {"a"}, {"a"}},
        {"insert",
         two_rows,
         with([](auto& o) { ignore(insert(o, "c")); }),
         {"a", "b"},
         {"a", "b", "c"},
         {"c"}},
        {"delete", two_rows, with([](auto& o) { ignore(remove(o, "a")); }), {"a", "b"}, {"b"}, {}},
        {"key upgrade",
         two_rows,
         with([](auto& o) { ignore(insert(o, "c")); }, 2),
         {"a", "b"},
         {"a", "b", "c"},
         {"c"}},
        {"repair",
         [two_rows] {
             two_rows();
             Bytes store = *test::readFile(kStore);
             store.back() ^= 1;
             test::writeFile(kStore, store);
         },
         with([](auto& o) {
             int status = 0;
             aliases(o, &status);
         }),
         {"a"},
         {"a"},
         {}},
    };
}

// ---- Faults -------------------------------------------------------------------------------------

// What happens to the call with the given number; all others go through, but for those of the same
// kind after kFailFromThen.
struct Plan {
    enum Kind { kNone, kFail, kFailFromThen, kShort, kExit };
    Kind kind = kNone;
    int nth = 0;
    int error = 0;
};

struct Event {
    enum Kind { kCreate, kWrite, kFlush, kFlushDirectory, kRename, kUnlink };
    Kind kind;
    std::string path;
    std::string to;
    Bytes data;
};

FileCalls g_real;
Plan g_plan;
int g_calls;
std::map<int, std::string> g_open;
std::vector<Event> g_events;

std::string g_failing;  // the kind of call that fails from now on

// Counts a call of a kind; true when it is to fail.
bool hit(const char* kind) {
    const bool now = ++g_calls == g_plan.nth;
    if (now && g_plan.kind == Plan::kExit) {
        _exit(kDied);
    }
    if (now && g_plan.kind == Plan::kFailFromThen) {
        g_failing = kind;
    }
    const bool fails = g_failing == kind || (now && g_plan.kind == Plan::kFail);
    if (fails) {
        errno = g_plan.error;
    }
    return fails;
}

bool shortNow() {
    return g_plan.kind == Plan::kShort && g_calls == g_plan.nth;
}

void installFaults(const Plan& plan) {
    g_real = g_file_calls;
    g_plan = plan;
    g_calls = 0;
    g_file_calls.open = [](const char* path, int flags, mode_t mode) {
        const bool creates = (flags & O_CREAT) != 0;
        const int fd = hit("open") ? -1 : g_real.open(path, flags, mode);
        if (fd >= 0) {
            g_open[fd] = path;
            if (creates) {
                g_events.push_back({Event::kCreate, path, "", {}});
            }
        }
        return fd;
    };
    g_file_calls.lseek = [](int fd, off_t offset, int whence) -> off_t {
        return hit("lseek") ? -1 : g_real.lseek(fd, offset, whence);
    };
    g_file_calls.read = [](int fd, void* data, size_t len) -> ssize_t {
        return hit("read") ? -1 : g_real.read(fd, data, shortNow() ? len - 1 : len);
    };
    g_file_calls.write = [](int fd, const void* data, size_t len) -> ssize_t {
        if (hit("write")) {
            return -1;
        }
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        g_events.push_back({Event::kWrite, g_open[fd], "", Bytes(bytes, bytes + len)});
        return g_real.write(fd, data, shortNow() ? len / 2 : len);
    };
    g_file_calls.close = [](int fd) {
        const bool fails = hit("close");
        const int result = g_real.close(fd);
        return fails ? -1 : result;
    };
    g_file_calls.rename = [](const char* from, const char* to) {
        const int result = hit("rename") ? -1 : g_real.rename(from, to);
        if (result == 0) {
            g_events.push_back({Event::kRename, from, to, {}});
        }
        return result;
    };
    g_file_calls.unlink = [](const char* path) {
        const int result = hit("unlink") ? -1 : g_real.unlink(path);
        if (result == 0) {
            g_events.push_back({Event::kUnlink, path, "", {}});
        }
        return result;
    };
    g_file_calls.flush = [](int fd) {
        if (hit("flush")) {
            return;  // a flush that fails, silently
        }
        const bool directory = fd == zelkm::kWorkingDirectory;
        g_events.push_back({directory ? Event::kFlushDirectory : Event::kFlush,
                            directory ? "" : g_open[fd],
                            "",
                            {}});
    };
}

// ---- Children -----------------------------------------------------------------------------------

// Runs `action` in a child whose working directory is `directory`; returns its exit status, or -1
// when a signal ended it. What the child returns is sent to `answer`.
int inChild(const fs::path& directory, const std::function<std::string()>& action,
            std::string* answer = nullptr) {
    int ends[2];
    if (::pipe(ends) != 0) {
        return -1;
    }
    const test::Ended child = test::runInChild([&] {
        fs::current_path(directory);
        const std::string text = action();
        const bool sent = ::write(ends[1], text.data(), text.size()) == ssize_t(text.size());
        return sent ? kFinished : 1;
    });
    ::close(ends[1]);
    char buffer[4096];
    ssize_t count = 0;
    while ((count = ::read(ends[0], buffer, sizeof(buffer))) > 0) {
        if (answer != nullptr) {
            answer->append(buffer, static_cast<size_t>(count));
        }
    }
    ::close(ends[0]);
    return child.status;
}

std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items) {
        text += item + " ";
    }
    return text;
}

// What a new process reads in a directory: the aliases, or the result code.
std::string readBack(const fs::path& directory, uint32_t patch_level) {
    std::string answer;
    const int status = inChild(
        directory,
        [patch_level] {
            SoftKeymaster km(options(patch_level));
            int result = 0;
            const std::vector<std::string> rows = aliases(*test::makeObject(&km, true), &result);
            return result == 0 ? joined(rows) : "status " + std::to_string(result);
        },
        &answer);
    return status == kFinished ? answer : "crash " + std::to_string(status);
}

// ---- The promise --------------------------------------------------------------------------------

class FileFault : public test::InTempDir {
  protected:
    fs::path prepared() const { return directory() / "prepared"; }
    fs::path tried() const { return directory() / "tried"; }
    fs::path scratch() const { return directory() / "scratch"; }

    static void copyTo(const fs::path& from, const fs::path& to) {
        fs::remove_all(to);
        fs::copy(from, to);
    }

    void prepare(const Operation& operation) {
        fs::remove_all(prepared());
        fs::create_directory(prepared());
        ASSERT_EQ(kFinished, inChild(prepared(), [&] {
                      test::writeFile(kRootKey, Bytes(32, 7));
                      fs::permissions(kRootKey, fs::perms(0600));
                      operation.prepare();
                      return std::string();
                  }));
    }

    // Whether some version of the store opens with some version of the key, with the right content.
    bool holdsWholeVersion(const fs::path& directory, const Operation& operation, Repair repair) {
        const std::string old_rows = joined(operation.before);
        const std::string new_rows = joined(operation.after);
        if (operation.before.empty() && !fs::exists(prepared() / kStore)) {
            return true;  // there was nothing to lose
        }
        if (repair == kKeyReplaced) {
            return test::readFile(directory / kStore) == test::readFile(prepared() / kStore);
        }
        for (const char* store : {"", ".bak", ".tmp"}) {
            for (const char* key : {"", ".bak", ".tmp"}) {
                const fs::path store_path = directory / (std::string(kStore) + store);
                const fs::path key_path = directory / (std::string("edbk") + key);
                if (!fs::exists(store_path) || !fs::exists(key_path)) {
                    continue;
                }
                fs::remove_all(scratch());
                fs::create_directory(scratch());
                fs::copy(store_path, scratch() / kStore);
                fs::copy(key_path, scratch() / "edbk");
                fs::copy(directory / kRootKey, scratch() / kRootKey);
                const std::string rows = readBack(scratch(), 2);
                if (rows == old_rows || rows == new_rows ||
                    (repair == kBackupRestored && rows == kBackupRows)) {
                    return true;
                }
            }
        }
        return false;
    }

    // The promise for one directory that a fault left behind.
    void check(const fs::path& directory, const Operation& operation, const std::string& context,
               Repair repair = kNoRepair) {
        EXPECT_TRUE(holdsWholeVersion(directory, operation, repair)) << context;
        copyTo(directory, scratch());
        const std::string opened = readBack(scratch(), 2);
        std::set<std::string> allowed = {joined(operation.before),
                                         joined(operation.after),
                                         joined(operation.from_empty),
                                         "",  // the store starts empty between the renames
                                         "status -30",
                                         "status -38"};
        if (repair != kNoRepair) {
            allowed.insert(kBackupRows);
        }
        EXPECT_EQ(1u, allowed.count(opened)) << context << ": " << opened;
        ++states_;
    }

    int states_ = 0;
};

// Runs the operation under a plan in the directory `tried`; returns the child's exit status and how
// many file calls it made.
int runWithPlan(const fs::path& directory, const Operation& operation, const Plan& plan, int* calls,
                Repair* repair) {
    std::string answer;
    const int status = inChild(
        directory,
        [&] {
            installFaults(plan);
            operation.run();
            if (__lsan_do_recoverable_leak_check != nullptr &&
                __lsan_do_recoverable_leak_check() != 0) {
                _exit(kLeaked);
            }
            return std::to_string(g_calls) + " " + std::to_string(repairDone());
        },
        &answer);
    *calls = status == kFinished ? std::stoi(answer) : 0;
    *repair = status == kFinished ? static_cast<Repair>(answer.back() - '0') : kNoRepair;
    return status;
}

TEST_F(FileFault, FailedCallsAndKilledProcessesLoseNothing) {
    std::vector<std::pair<std::string, Plan>> kinds = {{"exit", {Plan::kExit, 0, 0}},
                                                       {"short", {Plan::kShort, 0, 0}}};
    for (const int error : {EIO, ENOSPC, EACCES, EINTR}) {
        kinds.push_back({std::strerror(error), {Plan::kFail, 0, error}});
    }
    kinds.push_back({"no such call any more", {Plan::kFailFromThen, 0, EIO}});
    for (const Operation& operation : operations()) {
        prepare(operation);
        for (auto [kind, plan] : kinds) {
            int calls = 1;
            for (plan.nth = 1; plan.nth <= calls || plan.kind == Plan::kExit; ++plan.nth) {
                const std::string context =
                    operation.name + ", " + kind + " at call " + std::to_string(plan.nth);
                copyTo(prepared(), tried());
                Repair repair = kNoRepair;
                const int status = runWithPlan(tried(), operation, plan, &calls, &repair);
                ASSERT_EQ(status,
                          plan.kind == Plan::kExit && status != kFinished ? kDied : kFinished)
                    << context;
                check(tried(), operation, context, repair);
                if (plan.kind == Plan::kExit && status == kFinished) {
                    ASSERT_GT(plan.nth, 5) << context;
                    break;
                }
            }
        }
    }
    std::printf("states after a failed call or a killed process: %d\n", states_);
}

// ---- Power cuts ---------------------------------------------------------------------------------

// A directory as memory sees it and as the device may: entries point to contents; changes of
// entries reach the device in order, contents only for sure when flushed.
struct Disk {
    std::map<std::string, std::shared_ptr<Bytes>> entries;
    std::vector<std::function<void(decltype(entries)&)>> pending;  // changes of entries
    std::set<std::shared_ptr<Bytes>> unflushed;
    decltype(entries) durable;

    void apply(const Event& event) {
        const auto change = [this](std::function<void(decltype(entries)&)> step) {
            step(entries);
            pending.push_back(std::move(step));
        };
        switch (event.kind) {
            case Event::kCreate: {
                // A file that is there already is cut to length 0: its content is then unflushed.
                const auto content = std::make_shared<Bytes>();
                unflushed.insert(content);
                change([=](auto& e) { e[event.path] = content; });
                break;
            }
            case Event::kWrite:
                *entries[event.path] = event.data;
                break;
            case Event::kFlush:
                unflushed.erase(entries[event.path]);
                break;
            case Event::kFlushDirectory:
                durable = entries;
                pending.clear();
                break;
            case Event::kRename:
                change([=](auto& e) {
                    if (const auto node = e.extract(event.path)) {
                        e[event.to] = node.mapped();
                    }
                });
                break;
            case Event::kUnlink:
                change([=](auto& e) { e.erase(event.path); });
                break;
        }
    }

    // What the device may hold: all durable entries, the first `kept` pending changes, and of each
    // unflushed content the given share.
    void write(const fs::path& directory, size_t kept, size_t numerator) const {
        auto shown = durable;
        for (size_t i = 0; i < kept; ++i) {
            pending[i](shown);
        }
        for (const auto& [name, content] : shown) {
            Bytes bytes = *content;
            if (unflushed.count(content) != 0) {
                bytes.resize(bytes.size() * numerator / 2);
            }
            test::writeFile(directory / name, bytes);
        }
    }
};

std::vector<Event> record(const fs::path& directory, const Operation& operation) {
    const fs::path list = directory.parent_path() / "events";
    inChild(directory, [&] {
        installFaults({});
        operation.run();
        std::ofstream out(list, std::ios::binary);
        for (const Event& event : g_events) {
            out << int(event.kind) << ' ' << event.path << "; " << event.to << "; "
                << event.data.size() << ' ';
            out.write(reinterpret_cast<const char*>(event.data.data()),
                      std::streamsize(event.data.size()));
        }
        return std::string();
    });
    std::vector<Event> events;
    std::ifstream in(list, std::ios::binary);
    int kind = 0;
    const auto name = [&in] {
        std::string text;
        in.get();
        std::getline(in, text, ';');
        return text;
    };
    while (in >> kind) {
        Event event = {static_cast<Event::Kind>(kind), name(), "", {}};
        event.to = name();
        size_t len = 0;
        in >> len;
        in.get();
        event.data.resize(len);
        in.read(reinterpret_cast<char*>(event.data.data()), std::streamsize(len));
        events.push_back(std::move(event));
    }
    return events;
}

TEST_F(FileFault, PowerCutsLoseNothing) {
    for (const Operation& operation : operations()) {
        prepare(operation);
        copyTo(prepared(), tried());
        const std::vector<Event> events = record(tried(), operation);
        ASSERT_FALSE(events.empty()) << operation.name;
        Disk disk;
        for (const auto& file : fs::directory_iterator(prepared())) {
            disk.entries[file.path().filename().string()] =
                std::make_shared<Bytes>(*test::readFile(file.path()));
        }
        disk.durable = disk.entries;
        for (size_t at = 0; at <= events.size(); ++at) {
            for (size_t kept = 0; kept <= disk.pending.size(); ++kept) {
                for (const size_t numerator : {0u, 1u, 2u}) {
                    fs::remove_all(tried());
                    fs::create_directory(tried());
                    disk.write(tried(), kept, numerator);
                    check(tried(), operation,
                          operation.name + ", power cut after call " + std::to_string(at) + ", " +
                              std::to_string(kept) + " entry changes, content " +
                              std::to_string(numerator) + "/2");
                }
            }
            if (at < events.size()) {
                disk.apply(events[at]);
            }
        }
        EXPECT_TRUE(disk.pending.empty()) << operation.name << ": done, and not on the device";
    }
    std::printf("states after a power cut: %d\n", states_);
}

}  // namespace
