// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_level.h"

#include <keymaster_check/client.h>

#include <limits>

#include "bytes.h"
#include "failure.h"
#include "store_names.h"

namespace zelkm_tool {

std::optional<uint32_t> goToLevelOf(soft_keymaster::SoftKeymaster* keymaster,
                                    const std::string& key) {
    using namespace android::hardware::keymaster::V4_0;
    // A keymaster tells only whether a key is older or newer than its own level. So this is a
    // binary search.
    uint64_t low = 0;
    uint64_t high = std::numeric_limits<uint32_t>::max();
    while (low <= high) {
        const uint64_t level = low + (high - low) / 2;
        keymaster->setPatchLevel(static_cast<uint32_t>(level));
        const ErrorCode answer =
            keymaster_check::call([&](auto cb) {
                return keymaster->getKeyCharacteristics(toVec(key), {}, {}, cb);
            }).error;
        if (answer == ErrorCode::OK) {
            return static_cast<uint32_t>(level);
        }
        if (answer != ErrorCode::KEY_REQUIRES_UPGRADE) {
            low = level + 1;  // newer, or a key of another root key
        } else if (level == 0) {
            break;
        } else {
            high = level - 1;
        }
    }
    return std::nullopt;
}

std::optional<uint32_t> keyLevel(const Directory& directory) {
    try {
        const std::optional<Descriptor> root_key = directory.open(kRootKeyFile);
        const std::optional<std::string> key = directory.read(kKeyFile);
        if (!key || !root_key) {
            return std::nullopt;
        }
        // This path names the file that is open already, even when its name leads to another file
        // by now.
        soft_keymaster::SoftKeymaster::Options options;
        options.root_key_path = "/proc/self/fd/" + std::to_string(root_key->get());
        soft_keymaster::SoftKeymaster keymaster(options);
        return goToLevelOf(&keymaster, *key);
    } catch (const Refused&) {
        return std::nullopt;  // the caller names files that cannot be read
    }
}

}  // namespace zelkm_tool
