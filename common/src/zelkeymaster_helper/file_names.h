// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The files in the library's directory.

#pragma once

namespace zelkm {

inline constexpr char kStoreFile[] = "secure_objects.db";
inline constexpr char kKeyFile[] = "edbk";
inline constexpr char kKeyDigestFile[] = "edbk_digest";
inline constexpr char kErrorFile[] = "zelko_err.txt";

// The error file with its rolled versions, as plog names them, the oldest first.
inline constexpr const char* kErrorFiles[] = {"zelko_err.2.txt", "zelko_err.1.txt", kErrorFile};

// The files that are replaced as protected_file.h says.
inline constexpr const char* kReplacedFiles[] = {kStoreFile, kKeyFile, kKeyDigestFile};

// The suffixes of a file that is being replaced; see protected_file.h.
inline constexpr char kTemporarySuffix[] = ".tmp";
inline constexpr char kBackupSuffix[] = ".bak";

}  // namespace zelkm
