// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Tries keys and stores with the software keymaster and the library's engine, in memory. No file is
// written and no key is copied. The library's own repairs do not run: they can make things worse.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <cstdint>
#include <optional>
#include <string>

#include "directory.h"

namespace zelkm_tool {

// What a keymaster says about a key blob: 0, or why it does not take it.
int keyStatus(soft_keymaster::SoftKeymaster& keymaster, const std::string& key);

class KeyTrials {
  public:
    // Uses the software keymaster's root key in the directory, if there is one that can be opened.
    explicit KeyTrials(const Directory& directory);

    // False without a root key: no key blob can then be tried.
    bool canDecrypt() const { return keymaster_.has_value(); }

    // The patch level at which a key was made or last upgraded. Nothing without a root key, and
    // when that does not open the key.
    std::optional<uint32_t> levelOf(const std::string& key);

    // The keymaster's answer to a key blob, at the level of that key.
    int keyStatus(const std::string& key);

    struct Trial {
        int engine;           // the engine's result
        int keymaster;        // 0, or why the keymaster did not decrypt the payload
        std::string payload;  // the decrypted payload; empty when it was not decrypted
    };
    // Lets the library's engine read a store file with a key blob. Without a key blob only a
    // plaintext can be read.
    Trial read(const std::string& store, const std::string& key);

  private:
    std::optional<Descriptor> root_key_;
    std::optional<soft_keymaster::SoftKeymaster> keymaster_;
};

// The level of the key in a store directory. Nothing when the key or the root key is missing,
// cannot be read, or is of another store.
std::optional<uint32_t> keyLevel(const Directory& directory);

}  // namespace zelkm_tool
