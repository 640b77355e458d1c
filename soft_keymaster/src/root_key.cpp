// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "root_key.h"

#include <fcntl.h>
#include <openssl/sha.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#ifdef OPENSSL_IS_BORINGSSL
#include <openssl/hkdf.h>
#else
#include <openssl/kdf.h>
#endif

namespace soft_keymaster {

namespace {

constexpr size_t kMaxFileSize = 64 * 1024;

void requireFile(bool condition) {
    require(condition, ErrorCode::KEYMASTER_NOT_CONFIGURED);
}

// Nothing when the file does not exist.
std::optional<Bytes> readFile(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 && errno == ENOENT) {
        return std::nullopt;
    }
    requireFile(file >= 0);
    Bytes content(kMaxFileSize + 1);
    const ssize_t len = read(file, content.data(), content.size());
    close(file);
    requireFile(len >= 0 && len <= static_cast<ssize_t>(kMaxFileSize));
    content.resize(static_cast<size_t>(len));
    return content;
}

// Makes the file, complete or not at all. A link never replaces the file of another process that
// was first, as a rename would.
void createFile(const std::string& path, const Bytes& content) {
    std::string temporary = path + ".XXXXXX";
    const int file = mkstemp(temporary.data());  // exclusive, mode 0600
    requireFile(file >= 0);
    const ssize_t written = write(file, content.data(), content.size());
    const bool made = written == static_cast<ssize_t>(content.size()) && fsync(file) == 0 &&
                      (link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST);
    close(file);
    unlink(temporary.c_str());
    requireFile(made);
}

}  // namespace

Bytes loadOrCreateFile(const std::string& path, const std::function<Bytes()>& make) {
    if (path.empty()) {
        return make();
    }
    std::optional<Bytes> content = readFile(path);
    if (!content) {
        createFile(path, make());
        content = readFile(path);
    }
    requireFile(content.has_value());
    return *std::move(content);
}

RootKey::RootKey(const std::string& path)
    : key_(loadOrCreateFile(path, [] { return randomBytes(kSize); })) {
    requireFile(key_.size() == kSize);
}

Bytes RootKey::derive(const char* label, const Bytes& context, size_t size) const {
    Bytes info(label, label + strlen(label) + 1);  // with its NUL
    const size_t label_size = info.size();
    info.resize(label_size + SHA256_DIGEST_LENGTH);  // OpenSSL takes at most 2 KiB of info
    requireSsl(SHA256(context.data(), context.size(), info.data() + label_size) != nullptr);
    Bytes derived(size);
#ifdef OPENSSL_IS_BORINGSSL
    requireSsl(HKDF(derived.data(), size, EVP_sha256(), key_.data(), key_.size(), nullptr, 0,
                    info.data(), info.size()) == 1);
#else
    const PkeyContextPtr context_ptr(EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    EVP_PKEY_CTX* const hkdf = context_ptr.get();
    requireSsl(hkdf != nullptr && EVP_PKEY_derive_init(hkdf) == 1 &&
               EVP_PKEY_CTX_set_hkdf_md(hkdf, EVP_sha256()) == 1 &&
               EVP_PKEY_CTX_set1_hkdf_key(hkdf, key_.data(), static_cast<int>(key_.size())) == 1 &&
               EVP_PKEY_CTX_add1_hkdf_info(hkdf, info.data(), static_cast<int>(info.size())) == 1 &&
               EVP_PKEY_derive(hkdf, derived.data(), &size) == 1);
#endif
    return derived;
}

}  // namespace soft_keymaster
