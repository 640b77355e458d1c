// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// Byte strings: their hash, their form for people, and their conversion to and from the keymaster's
// byte vectors.

#pragma once

#include <hidl/HidlSupport.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelkm_tool {

// Begins error files, and what spreadsheets write.
inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The bytes in hexadecimal, two digits each; and back. Nothing for other texts.
std::string hex(std::string_view bytes);
std::optional<std::string> unhex(std::string_view digits);

// The pieces between the separators; one more than there are separators.
std::vector<std::string_view> split(std::string_view text, char separator);

// The reverse of split(), but for empty pieces at the front.
template <typename Pieces>
std::string join(const Pieces& pieces, std::string_view separator) {
    std::string text;
    for (const auto& piece : pieces) {
        text += text.empty() ? "" : separator;
        text += piece;
    }
    return text;
}

// "1 object", "2 objects".
std::string counted(uint64_t count, const std::string& what);

std::string sha256(std::string_view bytes);

// Turns \xNN and \\ into bytes; throws WrongUsage for any other backslash.
std::string unescape(std::string_view text);

// The reverse of unescape(): bytes in a form that a terminal can show. Printable text and UTF-8
// stay as they are.
std::string escape(std::string_view bytes);

// Text for a person: line feeds and backslashes stay, and all other bytes are as escape() makes
// them. Text of escape() stays as it is.
std::string printable(std::string_view text);

// The character at the start of a text in UTF-8, or a byte that is none.
struct Character {
    size_t len = 1;
    char32_t code = 0xFFFFFFFF;

    bool isUtf8() const { return code <= 0x10FFFF; }

    // Whether a terminal only shows it: no control character, and none that changes the direction
    // of writing or ends a line.
    bool isShown() const;
};
Character firstCharacter(std::string_view text);

// Whether all of it is UTF-8.
bool isUtf8(std::string_view text);

// These two copy the bytes.
inline android::hardware::hidl_vec<uint8_t> toVec(const std::string& bytes) {
    return android::hardware::hidl_vec<uint8_t>(bytes.begin(), bytes.end());
}

inline std::string toBytes(const android::hardware::hidl_vec<uint8_t>& vec) {
    return std::string(vec.begin(), vec.end());
}

}  // namespace zelkm_tool
