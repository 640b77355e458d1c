// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Makes the host a device whose only keymaster is the software keymaster. A program that gets its
// handle from the platform then runs here unchanged. See soft_keymaster.h.

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "soft_keymaster/soft_keymaster.h"

namespace android::hardware::keymaster::V4_0::support {

using soft_keymaster::SoftKeymaster;

Keymaster::KeymasterSet Keymaster::enumerateAvailableDevices() {
    const char* const named = std::getenv(soft_keymaster::kRootKeyVariable);
    SoftKeymaster::Options options;
    // The path is made absolute, because a caller may change the working directory before the
    // keymaster is first used.
    const bool is_named = named != nullptr && *named != '\0';
    options.root_key_path =
        std::filesystem::absolute(is_named ? named : "soft_keymaster_root.key").string();
    if (const char* const level = std::getenv(soft_keymaster::kPatchLevelVariable)) {
        options.patch_level = static_cast<uint32_t>(std::strtoul(level, nullptr, 10));
    }
    KeymasterSet keymasters;
    keymasters.push_back(std::make_unique<SoftKeymaster>(options));
    return keymasters;
}

// Does nothing: the software keymaster checks no token, and is alone.
void Keymaster::performHmacKeyAgreement(const KeymasterSet& /* keymasters */) {}

}  // namespace android::hardware::keymaster::V4_0::support
