// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "help_text.h"

#include <sstream>

namespace zelkm_tool {
namespace {

constexpr size_t kWidth = 80;

std::string filled(const std::string& text, size_t width) {
    std::istringstream words(text);
    std::string result;
    std::string word;
    size_t length = 0;  // of the last line
    while (words >> word) {
        const bool fits = length + 1 + word.size() <= width;
        if (length != 0) {
            result += fits ? ' ' : '\n';
        }
        length = length != 0 && fits ? length + 1 + word.size() : word.size();
        result += word;
    }
    return result;
}

}  // namespace

std::vector<HelpText> parseHelp(const std::string& text) {
    std::vector<HelpText> texts;
    std::istringstream lines(text);
    std::string line;
    bool is_after_empty_line = false;
    while (std::getline(lines, line)) {
        if (line.empty()) {
            is_after_empty_line = true;
            continue;
        }
        const bool as_is = line.substr(0, 2) == "  ";
        if (texts.empty() || is_after_empty_line || texts.back().as_is != as_is) {
            texts.push_back({as_is, is_after_empty_line, {line}});
        } else if (as_is) {
            texts.back().lines.push_back(line);
        } else {
            texts.back().lines.front() += " " + line;
        }
        is_after_empty_line = false;
    }
    return texts;
}

std::string HelpFormatter::make_footer(const CLI::App* app) const {
    std::string footer;
    for (const HelpText& text : parseHelp(app->get_footer())) {
        footer += text.follows_empty_line && !footer.empty() ? "\n" : "";
        for (const std::string& line : text.lines) {
            footer += (text.as_is ? line : filled(line, kWidth)) + "\n";
        }
    }
    return footer;
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    const bool is_list = option->get_expected_max() == CLI::detail::expected_max_vector_size;
    const std::string type = option->get_type_size() == 0 ? "" : option->get_type_name();
    return (type.empty() ? "" : " " + type) + (is_list ? " ..." : "") +
           (option->get_required() ? " REQUIRED" : "");
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
    return filled(option->get_description(), kWidth - get_column_width());
}

}  // namespace zelkm_tool
