// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the keymaster and the library's engine make of a store. All in memory: no file is written,
// no key is copied, and the library's own repairs, which are not always for the better, stay out.

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
    // Uses the software keymaster's root key in the directory; there may be none.
    StoreTrials(const Directory& directory, const SessionOptions& options);

    // Without a root key no key blob can be tried.
    bool canDecrypt() const { return keymaster_.has_value(); }

    // What the keymaster says to a key blob: 0 when it can be used, if need be after an upgrade.
    int keyStatus(const std::string& key);

    struct Decryption {
        int status;
        std::string payload;  // when the status is 0
    };
    // Decrypts the payload of `store`, which must be as long as its header says, under a key blob.
    Decryption decrypt(const std::string& store, const std::string& key);

    // The result of the engine's reading a store file under a key blob.
    int open(const std::string& store, const std::string& key);

  private:
    struct UsableKey {
        int status;
        std::string blob;
    };
    const UsableKey& usable(const std::string& key);

    std::optional<Descriptor> root_key_;
    std::optional<soft_keymaster::SoftKeymaster> keymaster_;
    std::map<std::string, UsableKey> keys_;  // by the blob as it is stored
};

}  // namespace zelkm_tool
