// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// An open file, closed with its owner. The standard streams stay open.

#pragma once

#include <unistd.h>

#include <utility>

namespace zelkm_tool {

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ > STDERR_FILENO) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace zelkm_tool
