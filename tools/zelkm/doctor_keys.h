// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Judges the key files of a store: finds out which of them is the key, and whether the digest fits
// it.

#pragma once

#include <string>

#include "doctor_findings.h"

namespace zelkm_tool {

class Keys {
  public:
    Keys(const StoreFiles& files, const KeyStatus& status);

    // The key blobs that can be tried, the current one first.
    const NamedKeys& named() const { return named_; }

    // Adds findings to `diagnosis`. `opening` is the key file that decrypts the chosen store; empty
    // when none does. `is_needed` tells whether there is a store that needs a key.
    void judge(const std::string& opening, bool is_needed, Diagnosis* diagnosis) const;

  private:
    bool has(const std::string& name) const { return files_.count(name) != 0; }
    std::string contentOf(const std::string& name) const;
    void judgeKey(const std::string& opening, bool is_needed, Findings* findings) const;
    void judgeDigest(const std::string& opening, bool is_needed, Findings* findings) const;
    void judgeLeftovers(const std::string& opening, Findings* findings) const;
    void judgeBackup(const std::string& opening, Findings* findings) const;

    const StoreFiles& files_;
    const KeyStatus& status_;
    const std::string by_digest_;
    NamedKeys named_;
};

}  // namespace zelkm_tool
