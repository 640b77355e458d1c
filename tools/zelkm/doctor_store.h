// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What one version of a store is worth: whole, cut, undecryptable, or whole behind a wrong header.

#pragma once

#include <cstdint>
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
        kNotTried,    // complete and encrypted, and no key could be tried on it
        kRefused,     // complete and encrypted, and not under any key that the keymaster accepts
        kMalformed,   // complete, but the library cannot tell its rows apart
    };
    State state;
    std::string words;    // what the file is, to follow its name
    std::string finding;  // the name of what is wrong with it; empty for nothing

    // When it reads: the file, with its header put right where that is needed. Flags, row count and
    // payload length are the fields that the encryption does not vouch for.
    std::string image;
    uint32_t rows = 0;  // of the image; else what the header says

    std::string key;  // the name of the key that decrypts it; empty without one

    // Bytes are missing, and not only by a length field that may itself be what is damaged.
    bool hopeless = false;

    bool reads() const { return state == kReads; }
    bool corrected() const { return reads() && !finding.empty(); }
    // Encrypted, and in every respect that shows without a key as the library writes it.
    bool looksWhole() const { return state == kNotTried && finding.empty(); }
};

// Any bytes are allowed.
StoreReading readStore(const std::string& file, const NamedKeys& keys, const Decrypt& decrypt);

// Why `now` cannot be what one change made of `before`, judged by the headers of two stores; empty
// when it can.
std::string whyNotOneChange(const std::string& before, const std::string& now);

}  // namespace zelkm_tool
