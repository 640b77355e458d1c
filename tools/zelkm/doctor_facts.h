// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory, for the doctor and for 'zelkm info'. It is read once and
// completely, and nothing is changed. All conclusions are then drawn in memory.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "directory.h"

namespace zelkm_tool {

// The contents of the files of the store, the key and the digest, with their backups and temporary
// files, by name. Files that do not exist are left out.
using StoreFiles = std::map<std::string, std::string>;

struct FileFacts {
    struct stat status;
    std::optional<std::string> content;  // of a file that the library makes, and that could be read
    std::string problem;                 // why such a file could not be read
};

struct Facts {
    std::string path;
    struct stat directory;
    std::map<std::string, FileFacts> files;  // everything that is in the directory, by name

    StoreFiles storeFiles() const;

    // The name of a file of the store or its key that exists but could not be read; empty for none.
    std::string unread() const;
};

// Throws Refused when the directory cannot be read. A file that cannot be read is one of the facts.
Facts collectFacts(const Directory& directory);

// The key file whose SHA-256 the digest file holds; empty when there is none.
std::string keyOfDigest(const StoreFiles& files);

// A file that a repair replaces. Without a content, a file that it removes.
struct Change {
    std::string file;
    std::optional<std::string> content;
    std::string source;  // the file that the content was taken from; empty when it was computed
    std::string why;
};

// The files as they are after the changes.
StoreFiles applied(StoreFiles files, const std::vector<Change>& changes);

// The same changes as commands for a shell in the directory, in order. The commands name only files
// that exist.
std::vector<std::string> shellCommands(const StoreFiles& files, const std::vector<Change>& changes);

}  // namespace zelkm_tool
