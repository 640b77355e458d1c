// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What a crash left of a store. See doctor_command.h.

#include "doctor_command.h"

#include <filesystem>
#include <iostream>

#include "doctor_diagnosis.h"
#include "doctor_repair.h"
#include "doctor_trial.h"
#include "failure.h"
#include "result_text.h"

namespace zelkm_tool {
namespace {

void printLines(const char* title, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        std::cout << title << line << '\n';
    }
}

std::string inWords(const Change& change) {
    return change.file + (change.content ? " from " : " goes: ") + change.source;
}

void print(const Diagnosis& diagnosis, bool tried) {
    printLines("", diagnosis.files);
    if (!tried) {
        std::cout << "note: no " << kRootKeyFile << ", so no key was tried\n";
    }
    printLines("note: ", diagnosis.notes);
    printLines("wrong: ", diagnosis.problems);
    printLines("advice: ", diagnosis.advice);
    if (diagnosis.problems.empty()) {
        std::cout << "nothing is wrong\n";
    }
}

// A repair is made only if the directory is healthy afterwards, and the library reads the store.
void rehearse(const StoreFiles& repaired, const StoreTrials& trials, const Decrypt& decrypt) {
    for (const std::string& left : diagnose(repaired, decrypt).problems) {
        throw Refused("not repaired: it would still be wrong that " + left);
    }
    check(trials.open(repaired), "not repaired: on a copy the library does not read the store");
}

}  // namespace

void runDoctor(const SessionOptions& options, bool repair) {
    if (!std::filesystem::is_directory(options.dir)) {
        throw Refused("directory " + options.dir + ": not a directory");
    }
    const StoreTrials trials(options);
    Decrypt decrypt;
    if (trials.canDecrypt()) {
        decrypt = [&trials](const std::string& store, const std::string& key) {
            return trials.decrypt(store, key);
        };
    }
    const StoreFiles files = readStoreFiles(options.dir);
    const Diagnosis diagnosis = diagnose(files, decrypt);
    print(diagnosis, trials.canDecrypt());
    if (diagnosis.problems.empty()) {
        return;
    }
    if (diagnosis.changes.empty()) {
        throw Refused("something is wrong, and the doctor cannot repair it");
    }
    for (const Change& change : diagnosis.changes) {
        std::cout << (repair ? "repair: " : "possible with --repair: ") << inWords(change) << '\n';
    }
    if (!repair) {
        throw Refused("something is wrong; --repair makes the changes named, and keeps copies");
    }
    const StoreFiles repaired = applied(files, diagnosis.changes);
    rehearse(repaired, trials, decrypt);
    std::cout << "copies of what is touched are in "
              << keepCopies(options.dir, files, diagnosis.changes) << '\n';
    makeChanges(options.dir, diagnosis.changes);
    if (readStoreFiles(options.dir) != repaired) {
        throw Refused("the files are not as they were written: is something else using the store?");
    }
    std::cout << "repaired\n";
}

}  // namespace zelkm_tool
