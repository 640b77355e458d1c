// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// The texts below the options of a command. Empty lines separate paragraphs. Lines that begin with
// two blanks stay as they are; all others are filled.

#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace zelkm_tool {

struct HelpText {
    bool as_is;                      // lines that stay as they are
    bool follows_empty_line;         // or the text before it
    std::vector<std::string> lines;  // one when it is filled
};

std::vector<HelpText> parseHelp(const std::string& text);

// Fills all lines to the width of a terminal.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_footer(const CLI::App* app) const override;
    // Without the options that exclude each other: a wrong command line names them.
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
};

}  // namespace zelkm_tool
