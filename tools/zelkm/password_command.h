// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Converts key material with the password hardware key.

#pragma once

#include <array>
#include <optional>
#include <string>

#include "session.h"

namespace zelkm_tool {

// All members name files. "-" is standard input or output.
struct PasswordOptions {
    std::array<std::string, 4> inputs;
    std::string material;
    std::string out;
    std::string tag;                 // written by wrap, read by unwrap
    std::optional<std::string> rot;  // receives the hardware's value
};

// Each throws WrongUsage or Refused. wrap() converts material, and makes its tag. unwrap() converts
// it back, if inputs and tag are the same.
void wrap(const SessionOptions& session, const PasswordOptions& options);
void unwrap(const SessionOptions& session, const PasswordOptions& options);

}  // namespace zelkm_tool
