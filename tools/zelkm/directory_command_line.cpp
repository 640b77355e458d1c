// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on a whole store directory. See command_line.h.

#include <memory>

#include "command_line.h"
#include "directory_lock.h"
#include "doctor_command.h"
#include "info_command.h"
#include "key_level.h"

namespace zelkm_tool {
namespace {

SessionOptions withDirectory(SessionOptions options, const std::string& dir) {
    if (!dir.empty()) {
        options.dir = dir;
    }
    return options;
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand("info", "Show what a store directory holds");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->footer(
        "Needs no key. Shows the headers of secure_objects.db, its .bak and its .tmp,\n"
        "the rows of a plaintext payload, the size of the key blob, whether edbk_digest\n"
        "matches it, the last lines of the error file and, with the root key of the software\n"
        "keymaster, the patch level of the key.");
    command->callback([&session, dir] {
        const SessionOptions options = withDirectory(session, *dir);
        const DirectoryLock lock(options, DirectoryLock::Mode::kShared);
        printInfo(options.dir);
        printKeyLevel(options.dir);
    });
}

void defineDoctor(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::string>();
    auto repair = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("doctor", "Tell what a crash left of a store");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->add_flag("--repair", *repair, "Put it right, and keep copies");
    command->footer(
        "Looks at the store, the key and its digest, with their .bak and .tmp, and says what\n"
        "happened and what can be done. All is tried on a copy, with the library and the\n"
        "software keymaster; without its root key, nothing encrypted is.\n"
        "\n"
        "--repair changes something only if the store reads afterwards, and keeps a copy of\n"
        "every file that it touches in doctor-YYYYMMDD-HHMMSS. Exit status 1 says that something "
        "is wrong, and stays so.\n"
        "\n"
        "  zelkm doctor store\n"
        "  zelkm doctor --repair store");
    command->callback([&session, dir, repair] {
        const SessionOptions options = withDirectory(session, *dir);
        const DirectoryLock lock(
            options, *repair ? DirectoryLock::Mode::kExclusive : DirectoryLock::Mode::kShared);
        runDoctor(options, *repair);
    });
}

}  // namespace

void defineDirectoryCommands(CLI::App& app, const SessionOptions& session) {
    defineInfo(app, session);
    defineDoctor(app, session);
}

}  // namespace zelkm_tool
