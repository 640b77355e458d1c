// PROTECTS NOTHING: for development and tests only.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Secrets in files, and the root key. Every other symmetric key is derived from the root key.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "common.h"

namespace soft_keymaster {

// The content of the file `path`; without a path, only what `make` returns. A missing file is made
// first, with mode 0600 and the content from `make`. When several processes do so at once, one of
// them wins, and all get its content. Throws KEYMASTER_NOT_CONFIGURED when the file can be neither
// read nor made.
Bytes loadOrCreateFile(const std::string& path, const std::function<Bytes()>& make);

class RootKey {
  public:
    static constexpr size_t kSize = 32;

    // Loads the key, or makes one. Throws KEYMASTER_NOT_CONFIGURED also for a file of another size.
    explicit RootKey(const std::string& path);

    // Derives `size` bytes with HKDF-SHA256. `label` names the use, and `context` may have any
    // length.
    Bytes derive(const char* label, const Bytes& context, size_t size) const;

  private:
    Bytes key_;
};

}  // namespace soft_keymaster
