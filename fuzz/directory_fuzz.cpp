// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A directory with any files, or with a store and its key of which some are replaced or damaged,
// from what the doctor reads to its report. The text must not disturb a terminal, and the JSON must
// be valid.

#include <soft_keymaster/soft_keymaster.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "../tools/zelkm/doctor_report.h"
#include "../tools/zelkm/store_names.h"
#include "folder.h"
#include "zelkeymaster_operation.h"

namespace {

using Files = std::map<std::string, std::string>;

// What the library leaves in a directory after two insertions, with the root key that opens it.
Files healthyFiles() {
    const fuzz::Folder folder;
    const fuzz::WorkingIn there(folder);
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = zelkm_tool::kRootKeyFile;
    static soft_keymaster::SoftKeymaster keymaster(options);
    static ZelKeymasterOperation object(&keymaster, true);
    std::string alias = "k1", creator = "app";
    SODOperationParam first, second;
    fuzz::require(object.SodInsert(first.setAlias(alias).setCreator(creator)) == 0);
    fuzz::require(object.SodInsert(second.setAlias(creator).setCreator(alias)) == 0);
    Files files;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        files[entry.path().filename()] = fuzz::readFile(entry.path());
    }
    return files;
}

zelkm_tool::Report examine(const fuzz::Folder& folder) {
    const zelkm_tool::Directory directory(folder.path());
    zelkm_tool::KeyTrials trials(directory);
    return zelkm_tool::examine(zelkm_tool::collectEvidence(directory), &trials);
}

void put(const fuzz::Folder& folder, const Files& files) {
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        std::filesystem::remove_all(entry.path());
    }
    for (const auto& [name, content] : files) {
        fuzz::writeFile(folder.path() / name, content);
        std::filesystem::permissions(folder.path() / name, std::filesystem::perms(0600));
    }
}

bool isPlain(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7F; });
}

std::string textOf(const fuzz::Block& block) {
    return {block.text(), block.len};
}

}  // namespace

// A byte that says with which files it begins. Then pieces: a byte that says what is done, the
// file's name, and its content or where it is damaged.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzz::Folder folder;
    static const Files healthy = [] {
        Files files = healthyFiles();
        put(folder, files);
        fuzz::require(examine(folder).diagnosis.decrypted);
        return files;
    }();
    std::vector<std::string> names = zelkm_tool::usedNames();
    names.insert(names.end(), {"copies/secure_objects.db", "edbk.doctor", "\x1b[31m\xff"});
    fuzz::Input input(data, size);
    put(folder, (input.byte() & 1) != 0 ? healthy : Files());
    while (!input.empty()) {
        const bool damages = (input.byte() & 1) != 0;
        const std::string name = textOf(input.block());
        const bool known = std::count(names.begin(), names.end(), name) != 0;
        const auto path = folder.path() / (known ? name : "other");
        if (damages) {
            fuzz::damage(path, input);
        } else {
            fuzz::writeFile(path, textOf(input.block()));
        }
    }
    const zelkm_tool::Report report = examine(folder);

    std::ostringstream text;
    zelkm_tool::printText(text, report, /*verdict_only=*/false);
    fuzz::require(isPlain(text.str()));
    std::ostringstream json;
    zelkm_tool::printJson(json, report);
    fuzz::require(isPlain(json.str()) && nlohmann::json::accept(json.str()));
    return 0;
}
