// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_blob.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstddef>

#include "aes_gcm.h"

namespace soft_keymaster {

namespace {

constexpr uint8_t kMagic[] = {'S', 'K', 'M', 1};
constexpr size_t kNonceOffset = sizeof(kMagic);
constexpr size_t kLengthOffset = kNonceOffset + AesGcm::kNonceSize;
constexpr size_t kLengthSize = 4;
constexpr size_t kHeaderSize = kLengthOffset + kLengthSize;

Bytes wrappingKey(const RootKey& root_key) {
    return root_key.derive("key blob", {}, AesGcm::kKeySize);
}

}  // namespace

Bytes clientDataOf(const hidl_vec<uint8_t>& application_id,
                   const hidl_vec<uint8_t>& application_data) {
    std::vector<KeyParameter> params;
    const auto add = [&](Tag tag, const hidl_vec<uint8_t>& value) {
        if (value.size() > 0) {
            params.push_back(param(tag, value));
        }
    };
    add(Tag::APPLICATION_ID, application_id);
    add(Tag::APPLICATION_DATA, application_data);
    return encodeParams(params);
}

Bytes clientDataOf(const Params& params) {
    return clientDataOf(bytesOf(params, Tag::APPLICATION_ID),
                        bytesOf(params, Tag::APPLICATION_DATA));
}

hidl_vec<uint8_t> wrapKey(const RootKey& root_key, const Key& key, const Bytes& client_data) {
    const Bytes characteristics = encodeParams(key.characteristics);
    Bytes head(kMagic, kMagic + sizeof(kMagic));
    head.resize(kLengthOffset);
    requireSsl(RAND_bytes(head.data() + kNonceOffset, AesGcm::kNonceSize) == 1);
    appendBigEndian(head, characteristics.size(), kLengthSize);
    head.insert(head.end(), characteristics.begin(), characteristics.end());

    hidl_vec<uint8_t> blob;
    blob.resize(head.size() + key.material.size() + AesGcm::kTagSize);
    uint8_t* const sealed = std::copy(head.begin(), head.end(), blob.data());
    AesGcm cipher(AesGcm::Mode::kEncrypt, wrappingKey(root_key), head.data() + kNonceOffset);
    cipher.addAssociatedData(head.data(), head.size());
    cipher.addAssociatedData(client_data.data(), client_data.size());
    cipher.update(key.material.data(), key.material.size(), sealed);
    cipher.finish(sealed + key.material.size(), AesGcm::kTagSize);
    return blob;
}

Key unwrapKey(const RootKey& root_key, const hidl_vec<uint8_t>& blob, const Bytes& client_data) {
    require(blob.size() >= kHeaderSize + AesGcm::kTagSize &&
                std::equal(kMagic, kMagic + sizeof(kMagic), blob.data()),
            ErrorCode::INVALID_KEY_BLOB);
    const size_t body_size = blob.size() - kHeaderSize - AesGcm::kTagSize;
    size_t characteristics_size = 0;
    for (size_t i = kLengthOffset; i < kHeaderSize; ++i) {
        characteristics_size = characteristics_size << 8 | blob[i];
    }
    require(characteristics_size <= body_size, ErrorCode::INVALID_KEY_BLOB);

    const uint8_t* const sealed = blob.data() + kHeaderSize + characteristics_size;
    Key key;
    key.material.resize(body_size - characteristics_size);
    AesGcm cipher(AesGcm::Mode::kDecrypt, wrappingKey(root_key), blob.data() + kNonceOffset);
    cipher.addAssociatedData(blob.data(), kHeaderSize + characteristics_size);
    cipher.addAssociatedData(client_data.data(), client_data.size());
    cipher.update(sealed, key.material.size(), key.material.data());
    require(cipher.verify(sealed + key.material.size(), AesGcm::kTagSize),
            ErrorCode::INVALID_KEY_BLOB);
    key.characteristics = decodeParams(blob.data() + kHeaderSize, characteristics_size);
    return key;
}

}  // namespace soft_keymaster
