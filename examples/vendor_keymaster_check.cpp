// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Checks the vendor keymaster of this folder, before a store depends on it. The exit status is 0
// when all that it offers holds.

#include <keymaster_check/keymaster_check.h>

#include <cstdio>

#include "vendor_keymaster.h"

using keymaster_check::Verdict;

int main() {
    // Hardware: a real device key is known to no program.
    const example::VendorKeymaster::DeviceKey device_key = {1, 2, 3};
    example::VendorKeymaster keymaster(device_key);

    int broken = 0;
    for (const keymaster_check::Finding& finding : keymaster_check::checkKeymaster(keymaster)) {
        switch (finding.verdict) {
            case Verdict::kHolds:
                std::printf("holds        %s\n", finding.id.c_str());
                break;
            case Verdict::kNotOffered:
                std::printf("not offered  %s: %s\n", finding.id.c_str(), finding.answered.c_str());
                break;
            case Verdict::kNotTried:
                std::printf("not tried    %s: %s\n", finding.id.c_str(), finding.answered.c_str());
                break;
            case Verdict::kBroken:
                ++broken;
                std::printf("BROKEN       %s: %s answered %s, so %s\n", finding.id.c_str(),
                            finding.sent.c_str(), finding.answered.c_str(),
                            finding.consequence.c_str());
                break;
        }
    }
    std::printf("%d broken\n", broken);
    return broken == 0 ? 0 : 1;
}
