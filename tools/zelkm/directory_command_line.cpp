// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on a whole store directory; see command_line.h.

#include <memory>

#include "command_line.h"
#include "directory_lock.h"
#include "doctor_command.h"
#include "info_command.h"

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
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("info", "Show what a store directory holds");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->add_flag("--json", *json, "Print one JSON object");
    command->footer(
        "Needs no key. Shows the library's files with their sizes, modes, owners and times,\n"
        "the headers of the versions of the store and the rows of a plaintext payload,\n"
        "which key file edbk_digest fits, the last lines of the error files and, with the root\n"
        "key of the software keymaster, the patch level of the key.");
    command->callback([&session, dir, json] {
        const SessionOptions options = withDirectory(session, *dir);
        const Directory directory(options.dir);
        const DirectoryLock lock(directory, options, DirectoryLock::Mode::kShared);
        printInfo(directory, *json);
    });
}

void defineDoctor(CLI::App& app, const SessionOptions& session, int* status) {
    auto dir = std::make_shared<std::string>();
    auto doctor = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Tell what is wrong with a store directory");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->add_flag("--repair", doctor->repair, "Put right what can be proved, and keep copies");
    command->add_flag("--json", doctor->json, "Print one JSON object");
    command->footer(
        "Reads every file, compares the versions of the store and of its key, decrypts the\n"
        "store if the software keymaster's root key is there, and sorts out the error files.\n"
        "Says what is wrong, by what that shows, what is lost, and what to do about it.\n"
        "\n"
        "Exit status:\n"
        "  0  healthy: everything was read, and the store was decrypted with its key\n"
        "  1  something is wrong\n"
        "  2  the directory cannot be read\n"
        "  3  not decided: nothing is wrong, but something, mostly the key, was missing\n"
        "\n"
        "--repair makes only changes that the key or, without it, structure or digest prove\n"
        "to be safe, and keeps a copy of every file that it touches in\n"
        "doctor-YYYYMMDD-HHMMSS. No program but this one may use the store meanwhile. Root\n"
        "acts as the directory's owner.\n"
        "\n"
        "  zelkm doctor store\n"
        "  zelkm doctor --repair store");
    command->callback([&session, dir, doctor, status] {
        *status = runDoctor(withDirectory(session, *dir), *doctor);
    });
}

}  // namespace

void defineDirectoryCommands(CLI::App& app, const SessionOptions& session, int* status) {
    defineInfo(app, session);
    defineDoctor(app, session, status);
}

}  // namespace zelkm_tool
