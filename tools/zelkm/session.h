// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A store directory at work: the software keymaster under the root key that lies in the directory,
// and the operation object.

#pragma once

#include <soft_keymaster/soft_keymaster.h>
#include <zelkeymaster_operation.h>

#include <optional>
#include <string>
#include <vector>

#include "directory_lock.h"
#include "session_options.h"

namespace zelkm_tool {

// Names of the files in a store directory.
inline constexpr char kStoreFile[] = "secure_objects.db";
inline constexpr char kKeyFile[] = "edbk";
inline constexpr char kKeyDigestFile[] = "edbk_digest";
inline constexpr char kErrorFile[] = "zelko_err.txt";
inline constexpr const char* kErrorFiles[] = {"zelko_err.2.txt", "zelko_err.1.txt", kErrorFile};
inline constexpr char kRefusedFile[] = "secure_objects.db.refused";
inline constexpr char kRootKeyFile[] = "soft_keymaster_root.key";
inline constexpr char kAttestationRootFile[] = "soft_keymaster_root.key.attest";

// What the library's files are called while they are replaced, and after.
inline constexpr char kBackupSuffix[] = ".bak";
inline constexpr char kTemporarySuffix[] = ".tmp";

// The three names of a file that the library replaces: the current one, ".tmp" and ".bak".
std::vector<std::string> versionsOf(const std::string& name);

// Every name that the library or this tool opens in a store directory.
std::vector<std::string> usedNames();

// The software keymaster of a store that is the working directory.
soft_keymaster::SoftKeymaster::Options keymasterOptions(const SessionOptions& options);

class Session {
  public:
    enum class Use {
        kStore,          // the secure objects
        kKeymasterOnly,  // the other services
    };

    // Locks the directory as long as the session lives, and makes it the process's working
    // directory, where the library keeps its files. Throws Refused when that cannot be, when the
    // store's key needs an upgrade that the options do not allow or, with kStore, when the state of
    // the store is one that the library would make worse.
    Session(const SessionOptions& options, Use use);
    // Says on standard error that a root key was made, if one was.
    ~Session();

    const SessionOptions& options() const { return options_; }

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
    void refuseUpgrade();

    const SessionOptions options_;
    const DirectoryLock lock_;
    soft_keymaster::SoftKeymaster keymaster_;
    const bool uses_store_;
    bool had_root_key_;
    std::optional<std::string> image_;  // the store file as it was found
};

}  // namespace zelkm_tool
