// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lets tests look at the operation object's caches and damage them.

#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "file_names.h"
#include "temp_dir.h"
#include "zelkeymaster_operation.h"

struct ZelKeymasterOperationPeer {
  public:
    explicit ZelKeymasterOperationPeer(ZelKeymasterOperation& object) : object_(object) {}

    test::Bytes image() const { return copy(object_.mDbData, object_.mDbLen); }
    const uint8_t* imageData() const { return object_.mDbData; }
    test::Bytes keyBlob() const { return copy(object_.mDbKeyBlob, object_.mDbKeyBlobLen); }
    const uint8_t* keyBlobData() const { return object_.mDbKeyBlob; }
    size_t keyBlobLen() const { return object_.mDbKeyBlobLen; }

    // Replace a cache by a copy of `bytes`, or by a null pointer when they are empty.
    void setImage(const test::Bytes& bytes) {
        replace(&object_.mDbData, bytes);
        object_.mDbLen = static_cast<uint32_t>(bytes.size());
    }
    // Loads the image as a new object does.
    void load() {
        static_cast<void>(
            ZelKeymasterOperation::load_data(zelkm::kStoreFile, &object_.mDbData, &object_.mDbLen));
    }
    void setKeyBlob(const test::Bytes& bytes) {
        replace(&object_.mDbKeyBlob, bytes);
        object_.mDbKeyBlobLen = bytes.size();
    }

  private:
    static test::Bytes copy(const uint8_t* data, size_t len) {
        return test::Bytes(data, data + len);
    }
    static void replace(uint8_t** owned, const test::Bytes& bytes) {
        std::free(*owned);
        *owned = nullptr;
        if (!bytes.empty()) {
            *owned = static_cast<uint8_t*>(std::malloc(bytes.size()));
            std::memcpy(*owned, bytes.data(), bytes.size());
        }
    }

    ZelKeymasterOperation& object_;
};

namespace test {

inline constexpr auto& kStore = zelkm::kStoreFile;
inline const std::string kStoreBackup = std::string(kStore) + zelkm::kBackupSuffix;

using ObjectPeer = ZelKeymasterOperationPeer;

// Releases an object together with its key blob. The library's destructor leaves the blob, and a
// leak checker would report it.
struct ObjectDeleter {
    void operator()(ZelKeymasterOperation* object) const {
        ObjectPeer(*object).setKeyBlob({});
        delete object;
    }
};
using ObjectPtr = std::unique_ptr<ZelKeymasterOperation, ObjectDeleter>;

inline ObjectPtr makeObject(android::hardware::keymaster::V4_0::support::Keymaster* km,
                            bool enableSecureDb) {
    return ObjectPtr(new ZelKeymasterOperation(km, enableSecureDb));
}

// Makes the process forget which table is loaded, as a restart would. The next query loads the
// image that its object holds.
inline void forgetTable() {
    ZelKeymasterOperation object(nullptr, true);
    const keymaster_blob_t nothing = {};
    keymaster_blob_t out = {};
    ASSERT_EQ(ZELKM_INVALID_ARGUMENT,
              object.queryInternal(nullptr, nullptr, nullptr, nullptr, &nothing, &out));
    clearLog();
}

}  // namespace test
