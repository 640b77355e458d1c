// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the library itself makes of a store. It repairs on its own, and not always for the better:
// so it only ever sees a copy, in a process and a directory that both end with the trial.

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "doctor_files.h"
#include "session.h"

namespace zelkm_tool {

class StoreTrials {
  public:
    // Reads the software keymaster's root key from the options' directory; there may be none.
    explicit StoreTrials(const SessionOptions& options);

    // Without a root key no key blob can be tried.
    bool canDecrypt() const { return root_key_.has_value(); }

    struct Decryption {
        int status;
        std::string payload;  // when the status is 0
    };
    // Decrypts the payload of `store`, which must be as long as its header says, under the key blob
    // `key`. Throws Refused when the trial itself fails, as does the next one.
    Decryption decrypt(const std::string& store, const std::string& key) const;

    // The result of reading the store of a directory that holds `files`.
    int open(const StoreFiles& files) const;

  private:
    std::string inCopy(const StoreFiles& files, const std::function<std::string()>& work) const;

    const SessionOptions options_;
    const std::optional<std::string> root_key_;
};

}  // namespace zelkm_tool
