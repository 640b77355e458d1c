// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What lies in a store directory, as the doctor and 'zelkm info' handle it: read once, completely,
// without changing anything, so that everything after it can be thought through in memory.

#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "directory.h"

namespace zelkm_tool {

// The contents of the files that are there, by name: the store, the key and its digest, each with
// its backup and its temporary file.
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

    // A file of the store or its key that is there and has no content here; empty for none.
    std::string unread() const;
};

// Throws Refused when the directory cannot be read; a file that cannot is part of the facts.
Facts collectFacts(const Directory& directory);

// Which of the key files the digest is of; empty for none, and without a digest.
std::string keyOfDigest(const StoreFiles& files);

// One file that a repair replaces or, without a content, removes.
struct Change {
    std::string file;
    std::optional<std::string> content;
    std::string source;  // the file that the content was taken from; empty when it was computed
    std::string why;
};

// The files after the changes.
StoreFiles applied(StoreFiles files, const std::vector<Change>& changes);

// The same changes for a shell in the directory, in order. Only files that are there are named.
std::vector<std::string> shellCommands(const StoreFiles& files, const std::vector<Change>& changes);

}  // namespace zelkm_tool
