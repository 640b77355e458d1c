// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "display_width.h"

#include <locale.h>
#include <wchar.h>

#include "store_values.h"

namespace zelkm_tool {
namespace {

constexpr char kEllipsis[] = "\xE2\x80\xA6";

// Takes the first character off the text.
std::string_view takeCharacter(std::string_view* text) {
    const size_t len = std::max<size_t>(utf8Length(*text), 1);
    const std::string_view character = text->substr(0, len);
    text->remove_prefix(len);
    return character;
}

size_t widthOf(std::string_view character) {
    if (character.size() == 1) {
        return 1;
    }
    // Values are UTF-8 whatever the user's locale is. Without this locale every character counts as
    // one column.
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (utf8 == nullptr) {
        return 1;
    }
    auto code = static_cast<wchar_t>(static_cast<unsigned char>(character[0]) &
                                     (0xFF >> (character.size() + 1)));
    for (const char byte : character.substr(1)) {
        code = static_cast<wchar_t>(code << 6 | (byte & 0x3F));
    }
    const locale_t before = ::uselocale(utf8);
    const int width = ::wcwidth(code);
    ::uselocale(before);
    return width < 0 ? 1 : static_cast<size_t>(width);
}

}  // namespace

size_t displayWidth(std::string_view text) {
    size_t width = 0;
    while (!text.empty()) {
        width += widthOf(takeCharacter(&text));
    }
    return width;
}

std::string cutToWidth(const std::string& text, size_t width) {
    if (displayWidth(text) <= width) {
        return text;
    }
    std::string_view rest = text;
    size_t taken = 0;
    size_t used = 0;
    for (;;) {
        const std::string_view character = takeCharacter(&rest);
        used += widthOf(character);
        if (used >= width) {  // the ellipsis needs a column
            return text.substr(0, taken) + kEllipsis;
        }
        taken += character.size();
    }
}

}  // namespace zelkm_tool
