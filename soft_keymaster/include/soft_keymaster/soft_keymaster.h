// PROTECTS NOTHING: for development and tests only. Keys lie under a root key in an ordinary file.
// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A keymaster 4.0 in software, with the answers that the platform's own software keymaster and a
// keymaster in hardware would give.
//
// What it does: AES-GCM keys and their operations, EC and RSA-2048 keys with attestation chains and
// certificate requests, and the password conversion (vendor purposes 101 and 102). The rest of the
// interface returns UNIMPLEMENTED; an EC or RSA key signs nothing but its own request.
//
// importKey takes AES keys, as raw bytes. upgradeKey returns an empty blob when the key is at the
// device's patch level already. deleteKey and deleteAllKeys always return OK: the keymaster stores
// no keys, and a blob goes on working. exportKey exports nothing.
//
// Key blobs hold the key and its characteristics, encrypted with the root key. Whoever uses the
// same root key file can open them. A key made with APPLICATION_ID or APPLICATION_DATA needs the
// same bytes at every use; without them its blob is an INVALID_KEY_BLOB. All characteristics are
// software enforced.
//
// Threads: one at a time per object. Several objects, and several processes, may share a root key
// file. Every callback runs before its call returns; on an error it gets empty values. No exception
// leaves an object, unless the callback throws it.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "store_keymaster.h"

namespace soft_keymaster {

// The library also defines the platform's Keymaster::enumerateAvailableDevices(), so that the host
// is a device with this one keymaster. The root key is then in the file that this environment
// variable names, or in soft_keymaster_root.key in the working directory.
inline constexpr char kRootKeyVariable[] = "SOFT_KEYMASTER_ROOT_KEY";
// The device's patch level is then that of this variable, if it is set.
inline constexpr char kPatchLevelVariable[] = "SOFT_KEYMASTER_PATCH_LEVEL";

class SoftKeymaster : public StoreKeymaster {
  public:
    struct Options {
        // The file of the root key, 32 random bytes. It is made with mode 0600 when it is first
        // needed. The attestation root lies beside it, under the same name with ".attest" at the
        // end. When a file cannot be read or made, every call that needs it returns
        // KEYMASTER_NOT_CONFIGURED. The next call tries again. Without a path, both are in memory
        // only, and end with the object.
        std::string root_key_path;
        // The device's patch level, YYYYMM. A key carries the level at which it was made. An older
        // key needs upgradeKey. A newer one is an INVALID_KEY_BLOB, and an INVALID_ARGUMENT of
        // upgradeKey.
        uint32_t patch_level = 202601;
        // The most bytes of input that one `update` consumes; 0 is no limit.
        size_t max_update_bytes = 0;
        // The most operations that may be open at once; `begin` then returns TOO_MANY_OPERATIONS.
        // An operation ends with `finish`, `abort` or any error.
        size_t max_operations = 16;
    };

    explicit SoftKeymaster(const Options& options);
    ~SoftKeymaster() override;

    SoftKeymaster(const SoftKeymaster&) = delete;
    SoftKeymaster& operator=(const SoftKeymaster&) = delete;

    // Plays a system update or a downgrade. It takes effect with the next call.
    void setPatchLevel(uint32_t patch_level);

    const VersionResult& halVersion() const override;
    Return<ErrorCode> addRngEntropy(const hidl_vec<uint8_t>& data) override;
    Return<ErrorCode> deleteAllKeys() override;
    Return<void> handle(const CallRecord& call, const Reply& reply) override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace soft_keymaster
