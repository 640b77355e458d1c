// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Judges one version of a store: it is whole, cut, cannot be decrypted, or is whole behind a wrong
// header.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "doctor_findings.h"
#include "key_trial.h"

namespace zelkm_tool {

// Key blobs to try, each with the name of its file.
using NamedKeys = std::vector<std::pair<std::string, std::string>>;

struct StoreReading {
    enum State {
        kReads,      // it can be read: see `image`
        kNotTried,   // it may be whole, and no key could be tried on it
        kDead,       // whatever the key is, and whatever the header should be: it cannot be read
        kRefused,    // no key that the keymaster takes decrypts it, or it is no store
        kDisguised,  // it was encoded or packed
    };
    State state;
    std::string words;    // what shows that; the text continues after a file's name
    std::string finding;  // empty when it is as it should be

    // Only when the store can be read: the file, with its header corrected where needed. Flags, row
    // count and payload length are the fields that the encryption does not protect.
    std::string image = {};
    std::string key = {};  // the file of the key that decrypts it; empty when none does

    bool reads() const { return state == kReads; }
    // The store is encrypted and complete, and nothing that can be seen without a key is wrong.
    bool looksWhole() const { return state == kNotTried && finding == "store-not-decrypted"; }
};

// `file` may hold any bytes.
StoreReading readStore(const std::string& file, const NamedKeys& keys, KeyTrials* trials);

}  // namespace zelkm_tool
