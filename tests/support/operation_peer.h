// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Lets tests and fuzz targets look at the operation object's caches and damage them, and what they
// do with a store.

#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "file_names.h"
#include "results.h"
#include "zelkeymaster_operation.h"

struct ZelKeymasterOperationPeer {
  public:
    using Bytes = std::vector<uint8_t>;

    explicit ZelKeymasterOperationPeer(ZelKeymasterOperation& object) : object_(object) {}

    Bytes image() const { return copy(object_.mDbData, object_.mDbLen); }
    const uint8_t* imageData() const { return object_.mDbData; }
    Bytes keyBlob() const { return copy(object_.mDbKeyBlob, object_.mDbKeyBlobLen); }
    const uint8_t* keyBlobData() const { return object_.mDbKeyBlob; }
    size_t keyBlobLen() const { return object_.mDbKeyBlobLen; }

    // Replace a cache by a copy of `bytes`, or by a null pointer when they are empty.
    void setImage(const Bytes& bytes) {
        replace(&object_.mDbData, bytes);
        object_.mDbLen = static_cast<uint32_t>(bytes.size());
    }
    void setKeyBlob(const Bytes& bytes) {
        replace(&object_.mDbKeyBlob, bytes);
        object_.mDbKeyBlobLen = bytes.size();
    }

    // Makes the process forget which table is loaded, as a restart would. The next query loads the
    // image that its object holds.
    void forgetTable() {
        keymaster_blob_t out = {};
        if (object_.queryInternal(nullptr, nullptr, nullptr, nullptr, nullptr, &out) !=
            ZELKM_INVALID_ARGUMENT) {
            std::abort();
        }
    }

    // Puts the object in the state of a new one: the image is loaded, key and table are not. (A
    // really new one would write each line of the error file once more.)
    void restart() {
        setImage({});
        static_cast<void>(
            ZelKeymasterOperation::load_data(zelkm::kStoreFile, &object_.mDbData, &object_.mDbLen));
        setKeyBlob({});
        forgetTable();
    }

  private:
    static Bytes copy(const uint8_t* data, size_t len) { return Bytes(data, data + len); }
    static void replace(uint8_t** owned, const Bytes& bytes) {
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

// The files that the library replaces, their backups and temporary files.
inline std::vector<std::string> replacedNames() {
    std::vector<std::string> names;
    for (const char* suffix : {"", zelkm::kBackupSuffix, zelkm::kTemporarySuffix}) {
        for (const char* name : zelkm::kReplacedFiles) {
            names.push_back(name + std::string(suffix));
        }
    }
    return names;
}

inline Code insertAlias(ZelKeymasterOperation& object, std::string alias,
                        std::string creator = "creator") {
    SODOperationParam p;
    return object.SodInsert(p.setAlias(alias).setCreator(creator));
}

inline Code removeAlias(ZelKeymasterOperation& object, std::string alias) {
    SODOperationParam p;
    return object.SodDelete(p.addAliasInWhere(alias));
}

inline Code readAliases(ZelKeymasterOperation& object, std::vector<std::string>* rows) {
    SODOperationParam p;
    return object.SodRetreiveOther(p.addAliasToOutput(), *rows);
}

}  // namespace test
