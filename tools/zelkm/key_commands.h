// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Certificate requests and attestation chains for keys of the keymaster.

#pragma once

#include <optional>
#include <string>

#include "session.h"

namespace zelkm_tool {

// The key to use: an existing blob in a file, or a new key.
struct KeyOptions {
    std::optional<std::string> file;
    bool rsa = false;  // a new key is RSA-2048 instead of EC P-256
};

struct CsrOptions {
    KeyOptions key;
    std::string out;
    bool der = false;
};

struct AttestOptions {
    KeyOptions key;
    std::string out_dir;
    std::optional<std::string> challenge;  // default: 32 random bytes
    bool der = false;
};

// Each throws WrongUsage or Refused. The blob of a new key is written beside the result. It never
// replaces an existing file.
void makeCsr(const SessionOptions& session, const CsrOptions& options);
void attestKey(const SessionOptions& session, const AttestOptions& options);

}  // namespace zelkm_tool
