// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "bytes.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "failure.h"

namespace zelkm_tool {

std::string hex(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += kDigits[value >> 4];
        text += kDigits[value & 15];
    }
    return text;
}

std::optional<std::string> unhex(std::string_view digits) {
    std::string bytes;
    for (; !digits.empty(); digits.remove_prefix(2)) {
        const std::string_view byte = digits.substr(0, 2);
        unsigned value = 0;
        const auto parsed = std::from_chars(byte.data(), byte.data() + byte.size(), value, 16);
        if (byte.size() < 2 || parsed.ptr != byte.data() + byte.size()) {
            return std::nullopt;
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (size_t end; (end = text.find(separator)) != text.npos; text.remove_prefix(end + 1)) {
        pieces.push_back(text.substr(0, end));
    }
    pieces.push_back(text);
    return pieces;
}

std::string counted(uint64_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string sha256(std::string_view bytes) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest;
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest.data());
    return {digest.begin(), digest.end()};
}

std::string unescape(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        if (text.substr(i, 2) == "\\\\") {
            bytes += '\\';
            i += 1;
            continue;
        }
        const std::string byte = unhex(text.substr(std::min(i + 2, text.size()), 2)).value_or("");
        if (text.substr(i, 2) != "\\x" || byte.empty()) {
            throw WrongUsage("byte " + std::to_string(i + 1) +
                             " is a backslash: write \\xNN for the byte NN (hexadecimal), or \\\\ "
                             "for a backslash");
        }
        bytes += byte;
        i += 3;
    }
    return bytes;
}

Character firstCharacter(std::string_view text) {
    const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = text.empty() ? 0xFFU : at(0);
    const size_t len = lead < 0x80   ? 1
                       : lead < 0xC2 ? 0
                       : lead < 0xE0 ? 2
                       : lead < 0xF0 ? 3
                       : lead < 0xF5 ? 4
                                     : 0;
    if (len == 0 || text.size() < len) {
        return {};
    }
    char32_t code = len == 1 ? lead : lead & (0x7FU >> len);
    for (size_t i = 1; i < len; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return {};
        }
        code = (code << 6) | (at(i) & 0x3FU);
    }
    const bool overlong = (len == 3 && code < 0x800) || (len == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code > 0x10FFFF ? Character() : Character{len, code};
}

bool Character::isShown() const {
    const auto within = [&](char32_t first, char32_t last) {
        return code >= first && code <= last;
    };
    return isUtf8() && !within(0, 0x1F) && !within(0x7F, 0x9F) && code != 0x061C &&
           !within(0x200E, 0x200F) && !within(0x2028, 0x202E) && !within(0x2066, 0x2069);
}

namespace {

// Characters that a terminal shows stay, and one has a text of its own. All other bytes become
// \xNN.
std::string shown(std::string_view bytes, char own, std::string_view own_text) {
    std::string text;
    while (!bytes.empty()) {
        const Character character = firstCharacter(bytes);
        const size_t len = character.isShown() ? character.len : 1;
        if (bytes[0] == own) {
            text += own_text;
        } else if (character.isShown()) {
            text += bytes.substr(0, len);
        } else {
            text += "\\x" + hex(bytes.substr(0, 1));
        }
        bytes.remove_prefix(len);
    }
    return text;
}

}  // namespace

std::string escape(std::string_view bytes) {
    return shown(bytes, '\\', "\\\\");
}

std::string printable(std::string_view text) {
    return shown(text, '\n', "\n");
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const Character character = firstCharacter(text);
        if (!character.isUtf8()) {
            return false;
        }
        text.remove_prefix(character.len);
    }
    return true;
}

}  // namespace zelkm_tool
