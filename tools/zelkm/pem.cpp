// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "pem.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <climits>

#include "failure.h"
#include "x509_handles.h"

namespace zelkm_tool {
namespace {

constexpr char kPemStart[] = "-----BEGIN ";

// Owns what PEM_read_bio() returns.
struct PemBlock {
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long len = 0;

    PemBlock() = default;
    PemBlock(const PemBlock&) = delete;
    PemBlock& operator=(const PemBlock&) = delete;
    ~PemBlock() {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
};

BioPtr newBio(const std::string& content) {
    if (content.size() > INT_MAX) {
        throw Refused("file too large");
    }
    return BioPtr(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
}

std::vector<std::string> splitPem(const std::string& content, const std::string& name) {
    std::vector<std::string> certificates;
    const BioPtr bio = newBio(content);
    for (int number = 1;; ++number) {
        PemBlock block;
        if (PEM_read_bio(bio.get(), &block.name, &block.header, &block.data, &block.len) != 1) {
            const bool at_end = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
            ERR_clear_error();
            if (!at_end) {
                throw Refused(name + ": PEM block " + std::to_string(number) + " is damaged");
            }
            return certificates;
        }
        if (std::string(block.name) == PEM_STRING_X509) {
            certificates.emplace_back(block.data, block.data + block.len);
        }
    }
}

}  // namespace

std::string toPem(const char* label, const std::string& der) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    if (PEM_write_bio(bio.get(), label, "", reinterpret_cast<const unsigned char*>(der.data()),
                      static_cast<long>(der.size())) <= 0) {
        throw Refused("PEM encoding failed");
    }
    return bioText(bio);
}

std::vector<std::string> splitCertificates(const std::string& content, const std::string& name) {
    if (content.find(kPemStart) != content.npos) {
        return splitPem(content, name);
    }
    std::vector<std::string> certificates;
    const auto* at = reinterpret_cast<const unsigned char*>(content.data());
    const auto* const end = at + content.size();
    while (at != end) {
        const unsigned char* const start = at;
        if (!X509Ptr(d2i_X509(nullptr, &at, end - start))) {
            at = end;
        }
        certificates.emplace_back(start, at);
    }
    ERR_clear_error();
    return certificates;
}

}  // namespace zelkm_tool
