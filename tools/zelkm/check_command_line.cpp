// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command line of the keymaster's check; see command_line.h.

#include <soft_keymaster/fault_keymaster.h>

#include <memory>

#include "check_command.h"
#include "command_line.h"

namespace zelkm_tool {

void defineCheck(CLI::App& app, const SessionOptions&) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* command = app.add_subcommand("check", "Check a keymaster as on a device");
    std::vector<std::string> names;
    std::string faults;
    for (const soft_keymaster::NamedFault& fault : soft_keymaster::namedFaults()) {
        names.push_back(fault.name);
        faults += "\n  " + names.back() + std::string(22 - names.back().size(), ' ') + fault.what;
    }
    command->add_option("--fault", options->fault, "Inject this fault")
        ->type_name("FAULT")
        ->check(CLI::IsMember(names).description(""));
    command->add_flag("--json", options->json, "Print JSON");
    command->add_option("--largest-store", options->largest_store, "Largest payload to try")
        ->type_name("BYTES")
        ->check(CLI::Range(size_t{1}, size_t{INT32_MAX}).description(""));
    command->footer(
        "Checks the software keymaster against each requirement of the library, then simulates\n"
        "a system upgrade and checks a key made before it. Reports what does not hold. No store\n"
        "is touched. zelkeymaster_check does the same on a device, with the same exit status;\n"
        "here --fault shows what a broken keymaster looks like:" +
        faults +
        "\n\n"
        "  zelkm check\n"
        "  zelkm check --fault tag-12");
    command->callback([options] { endWith(checkKeymaster(*options)); });
}

}  // namespace zelkm_tool
