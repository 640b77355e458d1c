// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// zelkeymaster_check: checks on a device whether its keymaster behaves as the library requires. On
// a host the check runs over the software keymaster.

#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "zelkeymaster_operation.h"

namespace {

using android::hardware::keymaster::V4_0::support::Keymaster;

enum ExitStatus { kExitHolds = 0, kExitBroken = 1, kExitNotRun = 2, kExitNotTried = 3 };

constexpr char kUsage[] =
    R"(Usage: zelkeymaster_check [OPTION]...
  or:  zelkeymaster_check --list
  or:  zelkeymaster_check [--name NAME] --save FILE
  or:  zelkeymaster_check [--name NAME] [OPTION]... --verify FILE
Check whether a keymaster of the device behaves as libzelkeymaster requires.

Each requirement is checked, and each violation is reported with its
consequence. Nothing is left behind: the keys that the check makes are deleted,
and so is its directory under TMPDIR.

  --list                 list the keymasters with their self-descriptions, the
                         most secure first
  --name NAME            check the keymaster of this name; default: the first of
                         the list
  --json                 print one JSON object instead of lines
  --no-attestation       skip the vendor's signing requests and attestation
  --no-password          skip the vendor's password conversion
  --largest-store BYTES  largest payload to try; default: 1000000
  --time SECONDS         time limit for each requirement; default: 30
  --save FILE            make a key, and write to FILE what --verify needs
  --verify FILE          check whether that key survived a restart or an upgrade
                         of the system; then delete the key and FILE
  --help                 print this help
  --version              print the version

Each requirement is named on standard error before it is checked.

Exit status:
  0  every requirement holds for what is offered
  1  something is broken
  2  invalid command line, or no such keymaster or file
  3  nothing is broken, but something was not tried
  130, 143  the check was stopped by Ctrl-C, or by SIGTERM
)";

struct Arguments {
    bool json = false;
    bool list = false;
    std::string name;
    std::string save;
    std::string verify;
    keymaster_check::Options options;
};

// A whole number from 1 to what the store's 32-bit lengths can say; else 0.
int parseNumber(const char* text) {
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    const bool is_number = *text >= '0' && *text <= '9' && *end == '\0' && value <= INT32_MAX;
    return is_number ? static_cast<int>(value) : 0;
}

// Takes one argument, and `value` behind it when that belongs to it. Returns how many it took; 0
// when it is not understood.
int take(const char* argument, const char* value, Arguments* arguments) {
    const auto is = [argument](const char* name) { return std::strcmp(argument, name) == 0; };
    keymaster_check::Options& options = arguments->options;
    if (is("--json") || is("--list")) {
        (is("--json") ? arguments->json : arguments->list) = true;
        return 1;
    }
    if (is("--no-attestation") || is("--no-password")) {
        (is("--no-password") ? options.password : options.attestation) = false;
        return 1;
    }
    if (value == nullptr || *value == '\0') {
        return 0;
    }
    const int number = parseNumber(value);
    if (is("--name") || is("--save") || is("--verify")) {
        (is("--name")   ? arguments->name
         : is("--save") ? arguments->save
                        : arguments->verify) = value;
        return 2;
    }
    if (is("--largest-store") && number != 0) {
        options.largest_store = static_cast<size_t>(number);
        return 2;
    }
    if (is("--time") && number != 0) {
        options.time = std::chrono::seconds(number);
        return 2;
    }
    return 0;
}

bool readFile(const std::string& path, std::string* text) {
    std::ifstream file(path, std::ios::binary);
    text->assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open();
}

int cannot(const std::string& path) {
    std::fprintf(stderr, "zelkeymaster_check: %s: %s\n", path.c_str(), std::strerror(errno));
    return kExitNotRun;
}

int save(Keymaster& keymaster, const Arguments& arguments) {
    std::FILE* const file = std::fopen(arguments.save.c_str(), "wbx");  // never over a file
    if (file == nullptr) {
        return cannot(arguments.save);
    }
    std::string failure;
    const std::string saved = keymaster_check::saveKey(keymaster, &failure, arguments.options);
    bool written = std::fputs(saved.c_str(), file) >= 0;
    written = std::fclose(file) == 0 && written;
    if (saved.empty() || !written) {
        std::remove(arguments.save.c_str());
        static_cast<void>(keymaster_check::verifyKey(keymaster, saved));  // deletes the key
        std::fprintf(stderr, "zelkeymaster_check: nothing was saved: %s\n",
                     saved.empty() ? failure.c_str() : "the file cannot be written");
        return kExitBroken;
    }
    std::printf("saved; restart or upgrade the system, then run with --verify %s\n",
                arguments.save.c_str());
    return kExitHolds;
}

int check(Keymaster& keymaster, Arguments& arguments, const std::string& saved) {
    const std::string name = keymaster_check::describe(keymaster);
    std::fprintf(stderr, "the keymaster: %s: %s\n", keymaster.instanceName().c_str(), name.c_str());
    // With --json the lines go to standard error, so that they are there when a call hangs.
    std::FILE* const lines = arguments.json ? stderr : stdout;
    arguments.options.progress = [](const std::string& id, size_t done, size_t all) {
        std::fprintf(stderr, "[%2zu/%zu] %s\n", done + 1, all, id.c_str());
    };
    arguments.options.found = [lines](const keymaster_check::Finding& finding) {
        std::fputs(keymaster_check::inText(finding).c_str(), lines);
        std::fflush(lines);
    };
    const auto findings = saved.empty()
                              ? keymaster_check::checkKeymaster(keymaster, arguments.options)
                              : keymaster_check::verifyKey(keymaster, saved, arguments.options);
    const int status = keymaster_check::exitStatus(findings);
    if (!saved.empty() && status != kExitNotTried) {
        std::remove(arguments.verify.c_str());  // its key is deleted
    }
    const std::string report = arguments.json ? keymaster_check::inJson(name, findings)
                                              : keymaster_check::summary(findings);
    if (std::fputs(report.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        return kExitNotRun;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    for (int i = 1; i < argc;) {
        if (std::strcmp(argv[i], "--help") == 0) {
            std::fputs(kUsage, stdout);
            return kExitHolds;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::puts("zelkeymaster_check " ZELKEYMASTER_VERSION);
            return kExitHolds;
        }
        const int taken = take(argv[i], argv[i + 1], &arguments);
        if (taken == 0) {
            std::fprintf(stderr,
                         "zelkeymaster_check: %s: unknown option, or invalid value\n"
                         "Try 'zelkeymaster_check --help'.\n",
                         argv[i]);
            return kExitNotRun;
        }
        i += taken;
    }
    std::string saved;
    if (!arguments.verify.empty() && !readFile(arguments.verify, &saved)) {
        return cannot(arguments.verify);
    }
    if (!arguments.verify.empty() && keymaster_check::savedBy(saved).empty()) {
        std::fprintf(stderr, "zelkeymaster_check: %s: not a file made by --save\n",
                     arguments.verify.c_str());
        return kExitNotRun;
    }
    if (arguments.name.empty()) {
        arguments.name = keymaster_check::savedBy(saved);
    }
    const Keymaster::KeymasterSet keymasters = Keymaster::enumerateAvailableDevices();
    for (const auto& keymaster : keymasters) {
        if (arguments.list) {
            std::printf("%s: %s\n", keymaster->instanceName().c_str(),
                        keymaster_check::describe(*keymaster).c_str());
        } else if (arguments.name.empty() || arguments.name == keymaster->instanceName().c_str()) {
            const keymaster_check::StopSignals signals;
            arguments.options.stopped = [] { return keymaster_check::StopSignals::caught() != 0; };
            const int status = arguments.save.empty() ? check(*keymaster, arguments, saved)
                                                      : save(*keymaster, arguments);
            const int caught = keymaster_check::StopSignals::caught();
            return caught == 0 ? status : 128 + caught;
        }
    }
    if (arguments.list) {
        return kExitHolds;
    }
    std::fprintf(stderr, "zelkeymaster_check: this device has no keymaster%s%s; see --list\n",
                 arguments.name.empty() ? "" : " named ", arguments.name.c_str());
    return kExitNotRun;
}
