// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the library itself over the keymaster: makes a store, reads it, damages it and has it
// repaired.

#include <algorithm>

#include "checks.h"
#include "file_names.h"
#include "gcm_run.h"
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

bool holdsText(const Bytes& content, const std::string& text) {
    return std::search(content.begin(), content.end(), text.begin(), text.end()) != content.end();
}

// The steps and their results, up to the first result that is not as expected. No step is taken
// without time.
class Story {
  public:
    Story(Caller& caller, const PrivateDirectory& directory)
        : caller_(caller), directory_(directory) {}

    // `act` returns the result. `consequence` is what follows from another one than `expected`.
    template <typename Act>
    void step(const char* what, const std::string& expected, const char* consequence, Act act) {
        if (outcome_.verdict != Verdict::kHolds || !caller_.hasTime()) {
            return;
        }
        const std::string result = act();
        outcome_.sent += (outcome_.sent.empty() ? "" : "; ") + std::string(what);
        outcome_.answered += (outcome_.answered.empty() ? "" : "; ") + result;
        if (result != expected) {
            outcome_.verdict = Verdict::kBroken;
            outcome_.answered += " in place of: " + expected;
            outcome_.consequence = consequence;
        }
        for (const std::string& file :
             {std::string(zelkm::kKeyFile), zelkm::kKeyFile + std::string(zelkm::kBackupSuffix)}) {
            caller_.own(directory_.read(file.c_str()));  // each step may bring another key
        }
    }

    const Finding& outcome() const { return outcome_; }

  private:
    Caller& caller_;
    const PrivateDirectory& directory_;
    Finding outcome_ = holds("", "");
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
    Bytes store;
    Story story(context, directory);
    story.step("insert an object", "0", kRefused,
               [&] { return describeCode(insert(*object, "alias_one")); });
    story.step("insert another", "0", kRefused,
               [&] { return describeCode(insert(*object, "alias_two")); });
    story.step("select", "0, alias_one alias_two", "what was inserted is not found", selected);
    story.step("look into the store file", "no object is readable",
               "the objects lie on the disk readable for everybody", [&] {
                   store = directory.read(zelkm::kStoreFile);
                   return store.empty()                ? "it is empty"
                          : holdsText(store, "alias_") ? "the objects are readable"
                                                       : "no object is readable";
               });
    story.step("select after a restart", "0, alias_one alias_two", kLost, selectAfterStart);
    story.step("damage the store file", "done", "the check's own directory does not work", [&] {
        store.back() = static_cast<uint8_t>(store.back() ^ 1);
        return directory.write(zelkm::kStoreFile, store) ? "done" : "not written";
    });
    story.step("select after a restart", "-30 VERIFICATION_FAILED",
               "damage to a store is not noticed as such, and not repaired", selectAfterStart);
    story.step("select after one more", "0, alias_one", "a damaged store is not repaired",
               selectAfterStart);
    forgetTable(*object);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    return story.outcome();
}

}  // namespace keymaster_check
