// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "key_blob.h"

#include <algorithm>
#include <cstddef>

#include "aes_gcm.h"

namespace soft_keymaster {

namespace {

constexpr uint8_t kMagic[] = {'S', 'K', 'M', 1};
constexpr size_t kLengthSize = 4;

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

Bytes wrapKey(const RootKey& root_key, const Key& key, const Bytes& client_data) {
    const Bytes characteristics = encodeParams(key.characteristics);
    const Bytes nonce = randomBytes(AesGcm::kNonceSize);
    Bytes blob(kMagic, kMagic + sizeof(kMagic));
    append(blob, nonce);
    appendBigEndian(blob, characteristics.size(), kLengthSize);
    append(blob, characteristics);

    AesGcm cipher(AesGcm::Mode::kEncrypt, wrappingKey(root_key), nonce.data());
    cipher.addAssociatedData(blob.data(), blob.size());
    cipher.addAssociatedData(client_data.data(), client_data.size());
    const size_t head = blob.size();
    blob.resize(head + key.material.size() + AesGcm::kTagSize);
    cipher.update(key.material.data(), key.material.size(), blob.data() + head);
    cipher.finish(blob.data() + head + key.material.size(), AesGcm::kTagSize);
    return blob;
}

Key unwrapKey(const RootKey& root_key, const hidl_vec<uint8_t>& blob, const Bytes& client_data) {
    Reader reader(blob.data(), blob.size());
    require(std::equal(kMagic, kMagic + sizeof(kMagic), reader.bytes(sizeof(kMagic))),
            ErrorCode::INVALID_KEY_BLOB);
    const uint8_t* const nonce = reader.bytes(AesGcm::kNonceSize);
    const size_t listed = reader.integer(kLengthSize);
    const uint8_t* const characteristics = reader.bytes(listed);
    const size_t head = blob.size() - reader.left();
    require(reader.left() >= AesGcm::kTagSize, ErrorCode::INVALID_KEY_BLOB);

    Key key;
    key.material.resize(reader.left() - AesGcm::kTagSize);
    AesGcm cipher(AesGcm::Mode::kDecrypt, wrappingKey(root_key), nonce);
    cipher.addAssociatedData(blob.data(), head);
    cipher.addAssociatedData(client_data.data(), client_data.size());
    cipher.update(reader.bytes(key.material.size()), key.material.size(), key.material.data());
    require(cipher.verify(reader.bytes(AesGcm::kTagSize), AesGcm::kTagSize),
            ErrorCode::INVALID_KEY_BLOB);
    key.characteristics = decodeParams(characteristics, listed);
    return key;
}

}  // namespace soft_keymaster
