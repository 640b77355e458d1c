// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The files of a store directory as the doctor handles them: all of them small, all in memory, so
// that a repair can be thought through before anything is touched.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelkm_tool {

inline constexpr char kBackupSuffix[] = ".bak";
inline constexpr char kTemporarySuffix[] = ".tmp";

// The contents of the files that are there, by name: the store, the key and its digest, each with
// its backup and its temporary file.
using StoreFiles = std::map<std::string, std::string>;

// Throws Refused for a file that is there and cannot be read.
StoreFiles readStoreFiles(const std::string& dir);

// One file that a repair replaces or, without a content, removes.
struct Change {
    std::string file;
    std::optional<std::string> content;
    std::string source;  // in words: where the content comes from, or why the file goes
};

// The files after the changes.
StoreFiles applied(StoreFiles files, const std::vector<Change>& changes);

}  // namespace zelkm_tool
