// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the library itself over the keymaster: makes a store, reads it, damages it and has it
// repaired.

#include <functional>
#include <string>

#include "checks.h"
#include "file_names.h"
#include "private_directory.h"
#include "velt_secure_db.h"
#include "zelkeymaster_operation.h"

namespace keymaster_check {
namespace {

// Makes the process forget its table in memory.
void forgetTable(ZelKeymasterOperation& object) {
    const keymaster_blob_t nothing = {};
    keymaster_blob_t out = {};
    static_cast<void>(object.queryInternal(nullptr, nullptr, nullptr, nullptr, &nothing, &out));
}

// Makes a new object, as a start of the process does. It is never deleted: objects live as long as
// their process.
ZelKeymasterOperation& startLibrary(Keymaster& keymaster) {
    static auto* const kept = new std::vector<ZelKeymasterOperation*>;
    kept->push_back(new ZelKeymasterOperation(&keymaster, true));
    forgetTable(*kept->back());
    return *kept->back();
}

int insert(ZelKeymasterOperation& object, std::string alias) {
    std::string creator = "keymaster_check";
    SODOperationParam param;
    return object.SodInsert(param.setAlias(alias).setCreator(creator));
}

// E.g. "0, first second" for two aliases; or only the code.
std::string select(ZelKeymasterOperation& object) {
    SODOperationParam param;
    std::vector<std::string> aliases;
    const int result = object.SodRetreiveOther(param.addAliasToOutput(), aliases);
    std::string text = describeCode(result);
    for (const std::string& alias : aliases) {
        text += (&alias == &aliases.front() ? ", " : " ") + alias;
    }
    return text;
}

// One step. `consequence` is what follows from another result than `expected`.
struct Step {
    const char* what;
    std::string expected;
    const char* consequence;
    std::function<std::string()> act;
};

}  // namespace

Finding checkEndToEnd(Context& context) {
    {
        CallbackWatch& watch = context.callbacks();
        const std::lock_guard<std::mutex> lock(watch.mutex);
        if (watch.late) {
            return notTried(
                "callbacks run late, and would write into the library's memory: see "
                "call.answered-once");
        }
    }
    if (!operationBegins(context, context.key) && context.foundNoRoom()) {
        return notTried("the library could not begin an operation");
    }
    const PrivateDirectory directory;
    if (!directory.isThere()) {
        return notTried("no directory could be made for it; TMPDIR says where");
    }
    ZelKeymasterOperation* object = &startLibrary(context.keymaster);
    const auto start = [&] { object = &startLibrary(context.keymaster); };
    const auto selected = [&] { return select(*object); };
    const auto selectAfterStart = [&] {
        start();
        return selected();
    };
    constexpr char kRefused[] = "insertions are refused with this code";
    constexpr char kLost[] = "stores do not survive a restart of the service";
    std::string store;
    const Step steps[] = {
        {"insert an object", "0", kRefused,
         [&] { return describeCode(insert(*object, "alias_one")); }},
        {"insert another", "0", kRefused,
         [&] { return describeCode(insert(*object, "alias_two")); }},
        {"select", "0, alias_one alias_two", "what was inserted is not found", selected},
        {"look into the store file", "no object is readable",
         "the objects lie on the disk readable for everybody",
         [&] {
             store = directory.read(zelkm::kStoreFile);
             return store.empty()                               ? "it is empty"
                    : store.find("alias_") != std::string::npos ? "the objects are readable"
                                                                : "no object is readable";
         }},
        {"select after a restart", "0, alias_one alias_two", kLost, selectAfterStart},
        {"damage the store file", "done", "the check's own directory does not work",
         [&] {
             store.back() = static_cast<char>(store.back() ^ 1);
             return directory.write(zelkm::kStoreFile, store) ? "done" : "not written";
         }},
        {"select after a restart", "-30 VERIFICATION_FAILED",
         "damage to a store is not noticed as such, and not repaired", selectAfterStart},
        {"select after one more", "0, alias_one", "a damaged store is not repaired",
         selectAfterStart}};
    Finding outcome = holds("", "");
    for (const Step& step : steps) {
        if (outcome.verdict != Verdict::kHolds || !context.hasTime()) {
            break;
        }
        const std::string result = step.act();
        outcome.sent += (outcome.sent.empty() ? "" : "; ") + std::string(step.what);
        outcome.answered += (outcome.answered.empty() ? "" : "; ") + result;
        if (result != step.expected) {
            outcome.verdict = Verdict::kBroken;
            outcome.answered += " in place of: " + step.expected;
            outcome.consequence = step.consequence;
        }
        for (const std::string& file :
             {std::string(zelkm::kKeyFile), zelkm::kKeyFile + std::string(zelkm::kBackupSuffix)}) {
            const std::string key = directory.read(file.c_str());  // each step may bring another
            context.own(Bytes(key.begin(), key.end()));
        }
    }
    forgetTable(*object);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    return outcome;
}

}  // namespace keymaster_check
