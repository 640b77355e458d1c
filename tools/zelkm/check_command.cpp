// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The command 'check': the check of the tool's own keymaster, as it is or with a fault.

#include <android/log.h>
#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>
#include <soft_keymaster/fault_keymaster.h>
#include <soft_keymaster/soft_keymaster.h>

#include <iostream>

#include "command_line.h"

namespace zelkm_tool {
namespace {

struct CheckOptions {
    std::string fault;  // a name of soft_keymaster::namedFaults(); empty for none
    bool json = false;
    size_t largest_store = 1000000;  // bytes
};

// Checks a keymaster with a root key of its own in memory: first all of it, and then a saved key
// after an upgrade of the system. No store is touched. Returns the exit status.
int checkKeymaster(const SessionOptions&, const CheckOptions& options) {
    // The check also logs the damage that it makes on purpose. --verbose shows it.
    if (__android_log_get_minimum_priority() == ANDROID_LOG_ERROR) {
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    }
    const keymaster_check::StopSignals signals;
    const soft_keymaster::SoftKeymaster::Options soft;
    soft_keymaster::SoftKeymaster sound(soft);
    soft_keymaster::FaultKeymaster keymaster(sound);
    const auto start = [&] {
        keymaster.reset();
        for (const soft_keymaster::NamedFault& fault : soft_keymaster::namedFaults()) {
            if (options.fault == fault.name) {
                fault.apply(keymaster);
            }
        }
    };

    keymaster_check::Options check;
    check.largest_store = options.largest_store;
    check.stopped = [] { return keymaster_check::StopSignals::caught() != 0; };
    if (!options.json) {
        check.found = [](const keymaster_check::Finding& finding) {
            std::cout << keymaster_check::inText(finding) << std::flush;
        };
    }
    start();
    const std::string name = keymaster_check::describe(keymaster);
    std::vector<keymaster_check::Finding> findings =
        keymaster_check::checkKeymaster(keymaster, check);
    start();
    std::string failure;
    const std::string saved = keymaster_check::saveKey(keymaster, &failure, check);
    sound.setPatchLevel(soft.patch_level + 1);  // the system is upgraded
    start();
    const auto later = keymaster_check::verifyKey(keymaster, saved, check);
    findings.insert(findings.end(), later.begin(), later.end());
    std::cout << (options.json ? keymaster_check::inJson(name, findings)
                               : keymaster_check::summary(findings));
    const int caught = keymaster_check::StopSignals::caught();
    return caught != 0 ? 128 + caught : keymaster_check::exitStatus(findings);
}

}  // namespace

void defineCheck(CLI::App& app, const SessionOptions& session) {
    const auto [command, options] =
        addCommand(app, session, "check", "Check a keymaster as on a device", checkKeymaster);
    std::vector<std::string> names;
    std::string faults;
    for (const soft_keymaster::NamedFault& fault : soft_keymaster::namedFaults()) {
        names.push_back(fault.name);
        faults +=
            "  " + names.back() + std::string(22 - names.back().size(), ' ') + fault.what + "\n";
    }
    addOption(command, "--fault", options.fault, "FAULT", "Inject this fault")
        ->check(CLI::IsMember(names).description(""));
    command.add_flag("--json", options.json, "Print JSON");
    addOption(command, "--largest-store", options.largest_store, "BYTES", "Largest payload to try")
        ->check(CLI::Range(size_t{1}, size_t{INT32_MAX}).description(""));
    command.footer(R"(Checks the software keymaster against each requirement of the library, then
simulates a system upgrade and checks a key made before it. Reports what does
not hold. No store is touched. zelkeymaster_check does the same on a device,
with the same exit status; here --fault shows what a broken keymaster looks
like:
)" + faults + R"(
  zelkm check
  zelkm check --fault tag-12)");
}

}  // namespace zelkm_tool
