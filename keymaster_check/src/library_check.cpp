// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Runs the library itself over the keymaster: makes a store, reads it, damages it and has it
// repaired.

#include <algorithm>
#include <cstdio>

#include "checks.h"
#include "private_directory.h"
#include "velt_secure_db.h"
#include "zelkeymaster_operation.h"

namespace keymaster_check {
namespace {

constexpr char kStore[] = "secure_objects.db";
constexpr char kKeyFiles[][9] = {"edbk", "edbk.bak"};

Bytes readFile(const char* name) {
    Bytes content;
    if (std::FILE* const file = std::fopen(name, "rb")) {
        uint8_t chunk[4096];
        size_t count = sizeof(chunk);
        while (count == sizeof(chunk)) {
            count = std::fread(chunk, 1, sizeof(chunk), file);
            content.insert(content.end(), chunk, chunk + count);
        }
        std::fclose(file);
    }
    return content;
}

bool writeFile(const char* name, const Bytes& content) {
    std::FILE* const file = std::fopen(name, "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    return std::fclose(file) == 0 && written;
}

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
    std::string text = codeInWords(result);
    for (const std::string& alias : aliases) {
        text += (&alias == &aliases.front() ? ", " : " ") + alias;
    }
    return text;
}

bool holdsText(const Bytes& content, const std::string& text) {
    return std::search(content.begin(), content.end(), text.begin(), text.end()) != content.end();
}

// The steps and their results, up to the first result that is not as expected.
struct Story {
    std::string sent;
    std::string answered;
    bool good = true;

    void step(const char* what, const std::string& result, const std::string& expected) {
        if (!good) {
            return;
        }
        sent += (sent.empty() ? "" : "; ") + std::string(what);
        answered += (answered.empty() ? "" : "; ") + result;
        good = result == expected;
        if (!good) {
            answered += " in place of: " + expected;
        }
    }
};

}  // namespace

Outcome checkEndToEnd(Context& context) {
    {
        CallbackWatch& watch = context.caller.callbacks();
        const std::lock_guard<std::mutex> lock(watch.mutex);
        if (watch.late) {
            return notTried(
                "callbacks run late, and would write into the library's memory: see "
                "call.answered-once");
        }
    }
    const PrivateDirectory directory;
    if (!directory.isThere()) {
        return notTried("no directory could be made for it; TMPDIR says where");
    }
    Story story;
    ZelKeymasterOperation& first = startLibrary(context.keymaster);
    story.step("insert an object", codeInWords(insert(first, "alias_one")), "0");
    story.step("insert another", codeInWords(insert(first, "alias_two")), "0");
    story.step("select", select(first), "0, alias_one alias_two");
    Bytes store = readFile(kStore);
    story.step("look into the store file",
               store.empty()                ? "it is empty"
               : holdsText(store, "alias_") ? "the objects are readable"
                                            : "no object is readable",
               "no object is readable");
    if (story.good) {
        story.step("select after a start", select(startLibrary(context.keymaster)),
                   "0, alias_one alias_two");
    }
    if (story.good) {
        store.back() = static_cast<uint8_t>(store.back() ^ 1);
        story.step("damage the store file", writeFile(kStore, store) ? "done" : "not written",
                   "done");
        story.step("select after a start", select(startLibrary(context.keymaster)),
                   "-30 VERIFICATION_FAILED");
    }
    if (story.good) {
        story.step("select after one more", select(startLibrary(context.keymaster)),
                   "0, alias_one");
    }
    forgetTable(first);
    sdb_register_db_encrypt_fp(nullptr, nullptr);
    for (const char* file : kKeyFiles) {
        const Bytes blob = readFile(file);
        if (!blob.empty()) {
            context.caller.deleteKey(blob);
        }
    }
    return {story.good ? Verdict::kHolds : Verdict::kBroken, story.sent, story.answered};
}

}  // namespace keymaster_check
