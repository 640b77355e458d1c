// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Tries a store with the keymaster and the library's engine, in memory. No file is written and no
// key is copied. The library's own repairs do not run: they can make things worse.

#pragma once

#include <soft_keymaster/soft_keymaster.h>

#include <map>
#include <optional>
#include <string>

#include "directory.h"
#include "session.h"

namespace zelkm_tool {

class StoreTrials {
  public:
    // Uses the software keymaster's root key in the directory, if there is one. Throws Refused when
    // that file cannot be opened.
    StoreTrials(const Directory& directory, const SessionOptions& options);

    // False without a root key: no key blob can then be tried.
    bool canDecrypt() const { return keymaster_.has_value(); }

    // The keymaster's answer to a key blob. 0 when the key can be used, after an upgrade in memory
    // if it needs one.
    int keyStatus(const std::string& key);

    struct Decryption {
        int status;
        std::string payload;  // empty unless the status is 0
    };
    // Decrypts the payload of `store` under a key blob. The payload must be as long as the header
    // says.
    Decryption decrypt(const std::string& store, const std::string& key);

    // The engine's result when it reads a store file under a key blob.
    int open(const std::string& store, const std::string& key);

  private:
    struct UsableKey {
        int status;
        std::string blob;
    };
    const UsableKey& usable(const std::string& key);

    std::optional<Descriptor> root_key_;
    std::optional<soft_keymaster::SoftKeymaster> keymaster_;
    std::map<std::string, UsableKey> keys_;  // by the blob as it lies in the file
};

}  // namespace zelkm_tool
