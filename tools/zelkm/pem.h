// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Certificates and requests in files.

#pragma once

#include <string>
#include <vector>

namespace zelkm_tool {

// The DER bytes in PEM armour (RFC 7468) with this label.
std::string toPem(const char* label, const std::string& der);

// The certificates of a file: the CERTIFICATE blocks of a PEM text, or DER certificates one after
// the other. Bytes that are no DER become the last element. Throws Refused for damaged PEM; `name`
// is for the message.
std::vector<std::string> splitCertificates(const std::string& content, const std::string& name);

}  // namespace zelkm_tool
