// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on a whole store directory; see command_line.h.

#include <memory>
#include <optional>

#include "command_line.h"
#include "directory_lock.h"
#include "doctor_command.h"
#include "failure.h"
#include "info_command.h"

namespace zelkm_tool {
namespace {

// An empty name is refused: it is rather a variable that is not set than the working directory.
SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir) {
    if (dir == "") {
        throw WrongUsage("the name of the directory is empty");
    }
    options.dir = dir.value_or(options.dir);
    return options;
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::optional<std::string>>();
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
    auto dir = std::make_shared<std::optional<std::string>>();
    auto doctor = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Tell what is wrong with a store directory");
    command->add_option("DIR", *dir, "The directory; default the one of --dir")->type_name("");
    command->add_flag("--repair", doctor->repair,
                      "Make the changes that the report lists, and keep copies");
    command->add_flag("--json", doctor->json, "Print one JSON object");
    command->footer(
        "Tells of every file in the directory and its folders what it is, by its\n"
        "content, decrypts the store if the software keymaster's root key is there, and\n"
        "sorts out the error files. Says what is wrong, what that means, and what to do.\n"
        "\n"
        "Exit status:\n"
        "  0  healthy: everything was read, and the store was decrypted with its key\n"
        "  1  something is wrong\n"
        "  2  the directory cannot be read, or not by this user\n"
        "  3  not decided: nothing is wrong, but something, mostly the key, was missing\n"
        "\n"
        "--repair makes the changes that the report lists. They were tried in memory\n"
        "before, by the library where there is a key. What they touch is kept in a new\n"
        "folder doctor-YYYYMMDD-HHMMSS. No program but this one may use the store\n"
        "meanwhile. Root acts as the directory's owner.\n"
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
