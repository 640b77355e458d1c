// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// zelkeymaster_check: tells on a device whether its keymaster answers as the library needs it. On a
// host the check runs over the software keymaster.

#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using android::hardware::keymaster::V4_0::support::Keymaster;

enum ExitStatus { kExitHolds = 0, kExitBroken = 1, kExitNotRun = 2 };

constexpr char kUsage[] =
    R"(Usage: zelkeymaster_check [--json] [--no-attestation] [--no-password]
                          [--largest-store BYTES]

Tries on the most secure keymaster of the device what the library needs of it,
and says what does not hold, and what that means. Nothing is left behind: the
keys that it makes are deleted, and so is its directory under TMPDIR.

  --json                 print one JSON object instead of lines
  --no-attestation       leave the vendor's signing requests and attestation out
  --no-password          leave the vendor's password conversion out
  --largest-store BYTES  payload to go up to; 1048576 unless given

What is being tried is told on standard error. Exit status: 0 all that is offered
holds; 1 something is broken; 2 the command line was not accepted, or there is no
keymaster.
)";

struct Arguments {
    bool json = false;
    keymaster_check::Options options;
};

bool parseSize(const char* text, size_t* size) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text, &end, 10);
    // Stores have 32-bit lengths.
    if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || value == 0 ||
        value > INT32_MAX) {
        return false;
    }
    *size = static_cast<size_t>(value);
    return true;
}

// Fills `arguments`. False when an argument is not understood.
bool parse(int argc, char** argv, Arguments* arguments) {
    for (int i = 1; i < argc; ++i) {
        const char* const argument = argv[i];
        if (std::strcmp(argument, "--json") == 0) {
            arguments->json = true;
        } else if (std::strcmp(argument, "--no-attestation") == 0) {
            arguments->options.attestation = false;
        } else if (std::strcmp(argument, "--no-password") == 0) {
            arguments->options.password = false;
        } else if (std::strcmp(argument, "--largest-store") == 0 && i + 1 < argc &&
                   parseSize(argv[i + 1], &arguments->options.largest_store)) {
            ++i;
        } else {
            std::fprintf(stderr, "zelkeymaster_check: %s: not understood\n%s", argument, kUsage);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return kExitHolds;
    }
    Arguments arguments;
    if (!parse(argc, argv, &arguments)) {
        return kExitNotRun;
    }
    const Keymaster::KeymasterSet keymasters = Keymaster::enumerateAvailableDevices();
    if (keymasters.empty()) {
        std::fputs("zelkeymaster_check: this device has no keymaster\n", stderr);
        return kExitNotRun;
    }
    Keymaster& keymaster = *keymasters.front();  // the most secure one
    const std::string name = keymaster_check::describe(keymaster);
    std::fprintf(stderr, "the keymaster: %s\n", name.c_str());
    arguments.options.progress = [](const std::string& id, size_t done, size_t all) {
        std::fprintf(stderr, "[%2zu/%zu] %s\n", done + 1, all, id.c_str());
    };
    const auto findings = keymaster_check::checkKeymaster(keymaster, arguments.options);
    const std::string report = arguments.json ? keymaster_check::inJson(name, findings)
                                              : keymaster_check::inText(findings);
    if (std::fputs(report.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        return kExitNotRun;
    }
    return keymaster_check::allHolds(findings) ? kExitHolds : kExitBroken;
}
