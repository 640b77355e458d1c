// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_level.h"

#include <soft_keymaster/soft_keymaster.h>

#include <cstdint>
#include <limits>
#include <optional>

#include "bytes.h"
#include "failure.h"
#include "session.h"

namespace zelkm_tool {
namespace {

// Nothing when the root key does not open the blob. `root_key_path` must exist.
std::optional<uint32_t> levelOfKey(const std::string& blob, const std::string& root_key_path) {
    using namespace android::hardware::keymaster::V4_0;
    soft_keymaster::SoftKeymaster::Options options;
    options.root_key_path = root_key_path;
    soft_keymaster::SoftKeymaster keymaster(options);

    // A keymaster tells only whether a key is older or newer than its own level. So this is a
    // binary search.
    uint64_t low = 0;
    uint64_t high = std::numeric_limits<uint32_t>::max();
    while (low <= high) {
        const uint64_t level = low + (high - low) / 2;
        keymaster.setPatchLevel(static_cast<uint32_t>(level));
        ErrorCode answer = ErrorCode::UNKNOWN_ERROR;
        keymaster.getKeyCharacteristics(
            toVec(blob), {}, {},
            [&](ErrorCode error, const KeyCharacteristics&) { answer = error; });
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

}  // namespace

std::string keyLevel(const Directory& directory) {
    try {
        const std::optional<Descriptor> root_key = directory.open(kRootKeyFile);
        const std::optional<std::string> blob = directory.read(kKeyFile);
        if (!blob || !root_key) {
            return "";
        }
        // This path names the file that is open already, even when its name leads to another file
        // by now.
        const std::optional<uint32_t> level =
            levelOfKey(*blob, "/proc/self/fd/" + std::to_string(root_key->get()));
        return level ? std::to_string(*level) : "unknown, it is not of this root key";
    } catch (const Refused&) {
        return "";  // the caller names files that cannot be read
    }
}

}  // namespace zelkm_tool
