// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A store directory at work: the software keymaster under the root key that lies in the directory,
// and the operation object.

#pragma once

#include <soft_keymaster/soft_keymaster.h>
#include <zelkeymaster_operation.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zelkm_tool {

// Names of the files in a store directory.
inline constexpr char kStoreFile[] = "secure_objects.db";
inline constexpr char kKeyFile[] = "edbk";
inline constexpr char kKeyDigestFile[] = "edbk_digest";
inline constexpr char kErrorFile[] = "zelko_err.txt";
inline constexpr char kRefusedFile[] = "secure_objects.db.refused";
inline constexpr char kRootKeyFile[] = "soft_keymaster_root.key";

// What the whole command line shares.
struct SessionOptions {
    std::string dir = ".";
    std::optional<uint32_t> patch_level;  // of the software keymaster, YYYYMM
};

// The software keymaster of a store that is the working directory.
soft_keymaster::SoftKeymaster::Options keymasterOptions(const SessionOptions& options);

class Session {
  public:
    enum class Use {
        kStore,          // the secure objects
        kKeymasterOnly,  // the other services
    };

    // Makes the directory the process's working directory, where the library keeps its files, and
    // says on standard error which keymaster is used. Throws Refused when the directory cannot be
    // entered or, with kStore, when its state is one that the library would make worse.
    Session(const SessionOptions& options, Use use);

    // Whether there is a store file.
    bool hasStore() const { return image_.has_value(); }

    // Made on the first call, for the process's first session: without a store file it leaves a
    // warning in the error file, and so a file in a directory that may be no store at all.
    ZelKeymasterOperation& operation();

    android::hardware::keymaster::V4_0::support::Keymaster& keymaster() { return keymaster_; }

    // Throws Refused unless the result of a store operation is 0. A store that it cannot decrypt
    // the library replaces by the backup: the refused one is then kept as kRefusedFile. Or, without
    // a backup, it removes the store: the file is then put back as it was.
    void checkStoreResult(int result, const std::string& what);

  private:
    soft_keymaster::SoftKeymaster keymaster_;
    const bool uses_store_;
    std::optional<std::string> image_;  // the store file as it was found
};

}  // namespace zelkm_tool
