// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Every file call of every operation has its turn: it fails, alone or with all later ones of its
// kind, or it ends the process, or the power is cut after it. Each time the directory must still
// hold a whole store and a key that decrypts it. Both may be the old ones or the new ones, under
// their own names, as backups, or as complete temporary files.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "fault_loop.h"
#include "file_faults.h"
#include "store_fixture.h"

namespace {

using namespace test;

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
    if (logged("E object: key blob is corrupted. regard the key file is broken and "
               "regenerate key")) {
        return kKeyReplaced;
    }
    return logged("E object: restore the stored db. need to restart keystore") ? kBackupRestored
                                                                               : kNoRepair;
}

struct Operation {
    std::string name;
    std::function<void()> prepare;  // fills the directory, without faults
    std::function<void()> run;      // with them, in a new process
    std::string before;             // the aliases that the store holds
    std::string after;
    std::string from_empty;  // the aliases afterwards, when the store file could not be read
};

// What becomes of the call with the number `nth`. All others are made, except that after
// kFailFromThen the later ones of its kind fail as well, and after kExit all later ones: a process
// that has ended leaves the files alone.
struct Plan {
    enum Kind { kFail, kFailFromThen, kShort, kExit };
    Kind kind;
    int error;
    int nth = 0;
};

// Lets the file calls fail as planned.
void carryOut(const Plan& plan, FileFaults* faults) {
    faults->before_each = [plan, faults, failing = std::string()](const FileCall& call) mutable {
        const bool now = faults->calls().size() == size_t(plan.nth);
        const bool dead = plan.kind == Plan::kExit && faults->calls().size() > size_t(plan.nth);
        if (now && plan.kind == Plan::kShort) {
            return Fate::kShort;
        }
        if (now && plan.kind == Plan::kFailFromThen) {
            failing = call.kind();
        }
        if (!now && !dead && call.kind() != failing) {
            return Fate::kMade;
        }
        errno = plan.error;
        return Fate::kFails;
    };
}

class FileFault : public StoreFixture<soft_keymaster::SoftKeymaster> {
  protected:
    // Runs `steps` in what is to the library a new process, on a system with this many updates.
    template <typename Steps>
    void process(uint32_t updates, Steps steps) {
        km_.setPatchLevel(options().patch_level + updates);
        reopen();
        steps(*object_);
    }

    std::vector<Operation> operations() {
        const auto insert = [this](const char* alias, uint32_t updates = 0) {
            return [=] { process(updates, [&](auto& o) { insertAlias(o, alias); }); };
        };
        const auto two_rows = [insert] {
            insert("a")();
            insert("b")();
        };
        const auto damaged = [two_rows] {
            two_rows();
            Bytes store = *readFile(kStore);
            store.back() ^= 1;
            writeFile(kStore, store);
        };
        const auto remove = [this] { process(0, [](auto& o) { removeAlias(o, "a"); }); };
        const auto read = [this] { process(0, [](auto& o) { readAliases(o); }); };
        return {{"first insert", [] {}, insert("a"), "", "a ", "a "},
                {"insert", two_rows, insert("c"), "a b ", "a b c ", "c "},
                {"delete", two_rows, remove, "a b ", "b ", ""},
                {"key upgrade", two_rows, insert("c", 1), "a b ", "a b c ", "c "},
                {"repair", damaged, read, "a ", "a ", ""}};
    }

    void prepare(const Operation& operation) {
        put({});
        operation.prepare();
        prepared_ = files();
    }

    // What a new process reads among these files: the aliases, or the result code.
    std::string readBack(const Files& files) {
        const auto [found, is_new] = known_.emplace(files, "");
        if (is_new) {
            put(files);
            process(1, [&text = found->second](auto& o) { text = readAliases(o); });
        }
        return found->second;
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
                const std::string rows = readBack(
                    {{kStore, files.at(kStore + store)}, {"edbk", files.at("edbk" + key)}});
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
                                         kNotVerified,
                                         refusal(ZELKM_INVALID_ARGUMENT)};
        if (repair != kNoRepair) {
            allowed.insert(kBackupRows);
        }
        const std::string opened = readBack(files);
        EXPECT_TRUE(allowed.count(opened) != 0) << "a new process reads: " << opened;
    }

    Files prepared_;
    std::map<Files, std::string> known_;  // what was read
};

TEST_F(FileFault, FailedCallsAndKilledProcessesLoseNothing) {
    std::vector<std::pair<std::string, Plan>> kinds = {
        {"exit", {Plan::kExit, EIO}},
        {"short", {Plan::kShort, 0}},
        {"no such call any more", {Plan::kFailFromThen, EIO}}};
    for (const int error : {EIO, ENOSPC, EACCES, EINTR}) {
        kinds.push_back({std::strerror(error), {Plan::kFail, error}});
    }
    int states = 0;
    for (const Operation& operation : operations()) {
        prepare(operation);
        for (const auto& [kind, fault] : kinds) {
            const auto attempt = [&, plan = fault](long nth) mutable {
                put(prepared_);
                plan.nth = int(nth);
                bool hit = false;
                {
                    FileFaults faults;
                    carryOut(plan, &faults);
                    operation.run();
                    hit = faults.calls().size() >= size_t(nth);
                }
                check(files(), operation, plan.kind == Plan::kExit ? kNoRepair : repairDone());
                return hit;
            };
            states += untilNothingFails(operation.name + ", " + kind + " at call", attempt);
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
std::vector<FileCall> changesOf(const Operation& operation) {
    FileFaults recorder;
    operation.run();
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
        const std::vector<FileCall> changes = changesOf(operation);
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
