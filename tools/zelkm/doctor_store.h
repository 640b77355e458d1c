// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What one version of a store is worth: whole, cut, undecryptable, or whole behind a wrong header.

#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "doctor_trial.h"

namespace zelkm_tool {

// Key blobs to try, by file name.
using NamedKeys = std::vector<std::pair<std::string, std::string>>;

// Decrypts a store under a key blob; empty when no key can be tried.
using Decrypt = std::function<StoreTrials::Decryption(const std::string&, const std::string&)>;

struct StoreReading {
    enum State {
        kReads,       // as `image`
        kIncomplete,  // bytes are missing
        kNotTried,    // complete and encrypted, and there is nothing to decrypt it with
        kRefused,     // complete and encrypted, and no key decrypts it
        kMalformed,   // complete, but the library cannot tell its rows apart
    };
    State state;
    std::string words;  // what the file is, to follow its name

    // When it reads: the file, with its header put right where that is needed. Flags, row count and
    // payload length are the fields that the encryption does not vouch for.
    std::string image;
    bool corrected;

    std::string key;  // the name of the key that decrypts it; empty without one
};

// Any bytes are allowed.
StoreReading readStore(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt);

}  // namespace zelkm_tool
