// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks the vendor keymaster of this folder, before a store depends on it. The exit status is 0
// when all that it offers holds.

#include <keymaster_check/keymaster_check.h>
#include <keymaster_check/report.h>

#include <cstdio>

#include "vendor_keymaster.h"

int main() {
    // Hardware: a real device key is known to no program.
    const example::VendorKeymaster::DeviceKey device_key = {1, 2, 3};
    example::VendorKeymaster keymaster(device_key);

    keymaster_check::Options options;
    options.found = [](const keymaster_check::Finding& finding) {
        std::fputs(keymaster_check::inText(finding).c_str(), stdout);
    };
    const auto findings = keymaster_check::checkKeymaster(keymaster, options);
    std::fputs(keymaster_check::summary(findings).c_str(), stdout);
    return keymaster_check::exitStatus(findings);
}
