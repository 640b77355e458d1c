// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Gives a test a working directory of its own, and reads and writes whole files in it.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "log_capture.h"

namespace test {

using Bytes = std::vector<uint8_t>;

inline Bytes bytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// The file's content, or nothing when there is no such file.
inline std::optional<Bytes> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

// The file's content as a string, which is empty when there is no such file.
inline std::string text(const std::filesystem::path& path) {
    return text(readFile(path).value_or(Bytes()));
}

inline void writeFile(const std::filesystem::path& path, const Bytes& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(content.data()),
              static_cast<std::streamsize>(content.size()));
    ASSERT_TRUE(out.good()) << path;
}

// Each test runs in a new, empty directory and starts with an empty log.
class InTempDir : public ::testing::Test {
  protected:
    InTempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "zelkm_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        directory_ = name;
        std::filesystem::current_path(directory_);
        clearLog();
    }
    ~InTempDir() override {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(directory_);
    }

    const std::filesystem::path& directory() const { return directory_; }

  private:
    const std::filesystem::path before_ = std::filesystem::current_path();
    std::filesystem::path directory_;
};

}  // namespace test
