// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the commands on a whole store directory; see command_line.h.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>

#include "command_line.h"
#include "directory_lock.h"
#include "doctor_command.h"
#include "failure.h"
#include "info_command.h"
#include "store_values.h"

namespace zelkm_tool {
namespace {

// An empty name is refused: it is rather a variable that is not set than the working directory.
SessionOptions withDirectory(SessionOptions options, const std::optional<std::string>& dir) {
    if (dir == "") {
        throw WrongUsage("the directory name is empty");
    }
    options.dir = dir.value_or(options.dir);
    return options;
}

void defineInfo(CLI::App& app, const SessionOptions& session) {
    auto dir = std::make_shared<std::optional<std::string>>();
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand("info", "Show what a store directory contains");
    command->add_option("DIR", *dir, "The directory; default: that of --dir")->type_name("");
    command->add_flag("--json", *json, "Print one JSON object");
    command->footer(
        "Needs no key. Shows the library's files with their sizes, modes, owners and times,\n"
        "the header of each version of the store and the rows of a plaintext payload,\n"
        "which key file edbk_digest matches, the last lines of the error files and, with the root\n"
        "key of the software keymaster, the patch level of the key.");
    command->callback([&session, dir, json] {
        const SessionOptions options = withDirectory(session, *dir);
        const Directory directory(options.dir);
        const DirectoryLock lock(directory, options, DirectoryLock::Mode::kShared);
        printInfo(directory, *json);
    });
}

// Runs the doctor on each directory in a process of its own. Returns the worst exit status.
int runDoctors(const SessionOptions& session, const std::vector<std::string>& dirs,
               const DoctorOptions& options) {
    int worst = kExitDone;
    std::cout << (options.json ? "[" : "");
    for (const std::string& dir : dirs) {
        const bool first = &dir == &dirs.front();
        std::cout << (options.json ? (first ? "" : ",") : escape(dir) + ": ")
                  << (options.json || session.quiet ? "" : "\n") << std::flush;
        const pid_t child = ::fork();
        if (child == 0) {
            bool done = false;
            const int status = exitStatusOf([&] {
                const int result = runDoctor(withDirectory(session, dir), options);
                done = true;
                return result;
            });
            if (!done) {
                std::cout << (options.json ? "null" : "not examined\n");
            }
            std::cout.flush();
            ::_exit(std::cout ? status : kExitRefused);
        }
        int ended = 0;
        if (child < 0 || ::waitpid(child, &ended, 0) != child || !WIFEXITED(ended)) {
            throw Refused(escape(dir) + ": its examination did not finish");
        }
        const auto rank = [](int status) { return (status + 3) % 4; };  // worst first: 1, 2, 3, 0
        worst =
            std::min(worst, WEXITSTATUS(ended), [&](int a, int b) { return rank(a) < rank(b); });
    }
    std::cout << (options.json ? "]\n" : "");
    return worst;
}

void defineDoctor(CLI::App& app, const SessionOptions& session, int* status) {
    auto dirs = std::make_shared<std::vector<std::string>>();
    auto doctor = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Diagnose and repair a store directory");
    command->add_option("DIR", *dirs, "The directories; default: that of --dir")->type_name("");
    command->add_flag("--repair", doctor->repair,
                      "Make the changes that the report lists, and keep copies");
    command->add_flag("--json", doctor->json,
                      "Print a JSON object; an array for several directories");
    command->footer(
        "Identifies every file in the directory and its subfolders by its content,\n"
        "decrypts the store if the software keymaster's root key is there, and evaluates\n"
        "the error files. Reports what is wrong, what that means, and what to do.\n"
        "\n"
        "Exit status:\n"
        "  0  healthy: everything was read, and the store was decrypted with its key\n"
        "  1  something is wrong\n"
        "  2  the directory cannot be read, or not by this user\n"
        "  3  not decided: nothing is wrong, but something, usually the key, is missing\n"
        "\n"
        "--repair makes the changes that the report lists. Each was tested in\n"
        "memory first, with the library if there is a key. The files that they touch are\n"
        "copied to a new folder doctor-YYYYMMDD-HHMMSS. No other program may use the store\n"
        "meanwhile. Root acts as the directory's owner.\n"
        "\n"
        "With --quiet only the verdict is printed. For several directories the exit status is\n"
        "the worst one, in the order 1, 2, 3, 0.\n"
        "\n"
        "  zelkm doctor store\n"
        "  zelkm doctor --repair store");
    command->callback([&session, dirs, doctor, status] {
        const auto only = dirs->empty() ? std::nullopt : std::make_optional(dirs->front());
        *status = dirs->size() > 1 ? runDoctors(session, *dirs, *doctor)
                                   : runDoctor(withDirectory(session, only), *doctor);
    });
}

}  // namespace

void defineDirectoryCommands(CLI::App& app, const SessionOptions& session, int* status) {
    defineInfo(app, session);
    defineDoctor(app, session, status);
}

}  // namespace zelkm_tool
