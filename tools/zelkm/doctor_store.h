// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Judges one version of a store: it is whole, cut, cannot be decrypted, or is whole behind a wrong
// header.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "doctor_trial.h"

namespace zelkm_tool {

// Key blobs to try, each with the name of its file.
using NamedKeys = std::vector<std::pair<std::string, std::string>>;

// Decrypts a store under a key blob. The function is empty when no key can be tried.
using Decrypt = std::function<StoreTrials::Decryption(const std::string&, const std::string&)>;

struct StoreReading {
    enum State {
        kReads,       // it can be read: see `image`
        kIncomplete,  // bytes are missing
        kNotTried,    // complete and encrypted, and no key could be tried on it
        kRefused,     // complete and encrypted, but no accepted key decrypts it
        kMalformed,   // complete, but the library cannot tell its rows apart
    };
    State state;
    std::string words;    // what the file is; the text continues after the file's name
    std::string finding;  // the name of the finding about it; empty when nothing is wrong

    // Only when the store can be read: the file, with its header corrected where needed. Flags, row
    // count and payload length are the fields that the encryption does not protect.
    std::string image;
    uint32_t rows = 0;  // in `image`; without one, what the header says

    std::string key;  // the file of the key that decrypts it; empty when none does

    // So many bytes are missing that no correction of the header can help.
    bool hopeless = false;

    bool reads() const { return state == kReads; }
    bool corrected() const { return reads() && !finding.empty(); }
    // The store is encrypted, and nothing that can be seen without a key is wrong.
    bool looksWhole() const { return state == kNotTried && finding.empty(); }
};

// `file` may hold any bytes.
StoreReading readStore(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt);

// The reason why one change cannot have made `now` from `before`, by the headers of both. Empty
// when it can.
std::string whyNotOneChange(const std::string& before, const std::string& now);

}  // namespace zelkm_tool
