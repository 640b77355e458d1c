// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// A folder of this process, in memory where the machine has one. It goes with the process.

#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz.h"

namespace fuzz {

class Folder {
  public:
    Folder() {
        const std::filesystem::path memory = "/dev/shm";
        const bool usable = ::access(memory.c_str(), W_OK) == 0;
        std::string path =
            (usable ? memory : std::filesystem::temp_directory_path()) / "zelkm_fuzz_XXXXXX";
        require(::mkdtemp(path.data()) != nullptr);
        path_ = path;
    }
    ~Folder() { std::filesystem::remove_all(path_); }

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// While an object of this class lives, the process works in its folder.
class WorkingIn {
  public:
    explicit WorkingIn(const Folder& folder) { std::filesystem::current_path(folder.path()); }
    ~WorkingIn() { std::filesystem::current_path(before_); }

  private:
    const std::filesystem::path before_ = std::filesystem::current_path();
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
}

inline void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

// Changes a byte of the file, or removes it, as the input says. Does nothing without such a file.
inline void damage(const std::filesystem::path& path, Input& input) {
    const size_t at = input.byte();
    std::string content = readFile(path);
    if (at == 255) {
        std::filesystem::remove(path);
    } else if (at < content.size()) {
        content[at] = char(content[at] ^ (input.byte() | 1));
        writeFile(path, content);
    }
}

}  // namespace fuzz
