// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What people are shown passes through here, wherever it comes from: names of files, arguments,
// stored values, messages of other libraries. None of them may give orders to a terminal.

#pragma once

#include <iosfwd>
#include <streambuf>
#include <string>

namespace zelkm_tool {

// Passes text on to another stream buffer as printable() makes it. Complete lines, and what there
// is at a flush, are passed on.
class ShownText : public std::streambuf {
  public:
    // Takes the place of the stream's buffer until it is destroyed.
    explicit ShownText(std::ostream& stream);
    ~ShownText() override;

    ShownText(const ShownText&) = delete;
    ShownText& operator=(const ShownText&) = delete;

  protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize len) override;
    int sync() override;

  private:
    bool passOn(size_t len);

    std::ostream& stream_;
    std::streambuf* const behind_;
    std::string pending_;
};

}  // namespace zelkm_tool
