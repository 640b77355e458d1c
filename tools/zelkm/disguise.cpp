// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "disguise.h"

#include <openssl/evp.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "bytes.h"

namespace zelkm_tool {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string withoutBlanks(std::string_view text) {
    std::string result(text);
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](char c) { return kBlanks.find(c) != kBlanks.npos; }),
                 result.end());
    return result;
}

std::optional<std::string> fromBase64(std::string_view bytes) {
    const std::string text = withoutBlanks(bytes);
    std::string result(text.size(), '\0');
    const int len = text.empty() || text.size() % 4 != 0
                        ? -1
                        : EVP_DecodeBlock(reinterpret_cast<unsigned char*>(result.data()),
                                          reinterpret_cast<const unsigned char*>(text.data()),
                                          static_cast<int>(text.size()));
    if (len < 0) {
        return std::nullopt;
    }
    // Each '=' at the end stands for a byte less.
    const size_t padding = text.size() - 1 - text.find_last_not_of('=');
    result.resize(static_cast<size_t>(len) - std::min<size_t>(padding, 2));
    return result;
}

std::optional<std::string> fromHex(std::string_view bytes) {
    const std::string text = withoutBlanks(bytes);
    return text.empty() ? std::nullopt : unhex(text);
}

// Each line feed has a carriage return before it.
std::optional<std::string> withoutCarriageReturns(std::string_view bytes) {
    std::string result;
    for (size_t at = 0; at < bytes.size(); ++at) {
        if (bytes.substr(at, 2) == "\r\n") {
            continue;
        }
        if (bytes[at] == '\n' && (at == 0 || bytes[at - 1] != '\r')) {
            return std::nullopt;
        }
        result += bytes[at];
    }
    return result.size() == bytes.size() ? std::nullopt : std::optional(result);
}

// Bytes that somebody took for Latin-1, and wrote as UTF-8.
std::optional<std::string> fromUtf8(std::string_view bytes) {
    std::string result;
    for (size_t at = 0; at < bytes.size(); ++at) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        if (byte < 0x80) {
            result += bytes[at];
            continue;
        }
        const bool two = (byte == 0xC2 || byte == 0xC3) && at + 1 < bytes.size() &&
                         (bytes[at + 1] & 0xC0) == 0x80;
        if (!two) {
            return std::nullopt;
        }
        result += static_cast<char>(byte << 6 | (bytes[++at] & 0x3F));
    }
    return result.size() == bytes.size() ? std::nullopt : std::optional(result);
}

// Whether it is UTF-8 in which U+FFFD stands for bytes that somebody could not read as text.
bool hasReplacements(std::string_view bytes) {
    return isUtf8(bytes) && bytes.find("\uFFFD") != bytes.npos;
}

struct Signature {
    size_t at;
    std::string_view bytes;
    const char* words;
    bool is_archive = false;
};
constexpr char kUtf16[] = "is UTF-16: iconv -f UTF-16 -t UTF-8";
constexpr char kPage[] = "is an HTML page: read what it says, and fetch the file again";
constexpr Signature kSignatures[] = {
    {0, "\x1f\x8b", "is gzip: gzip -dc", true},
    {0, "PK\x03\x04", "is a zip archive: funzip", true},
    {257, "ustar", "is a tar archive: tar -xO", true},
    {0, "\xff\xfe", kUtf16},
    {0, "\xfe\xff", kUtf16},
    {0, "<!", kPage},
    {0, "<html", kPage},
};

}  // namespace

Disguise disguiseOf(std::string_view bytes, const IsRight& is_right) {
    if (is_right(bytes)) {
        return {};
    }
    const std::pair<const char*, std::optional<std::string>> encodings[] = {
        {"is base64: base64 -d", fromBase64(bytes)},
        {"is hexadecimal text: xxd -r -p", fromHex(bytes)},
        {"is a text with CR LF for each line feed: dos2unix -f", withoutCarriageReturns(bytes)},
        {"is UTF-8 made from Latin-1: iconv -f UTF-8 -t ISO-8859-1", fromUtf8(bytes)},
    };
    for (const auto& [words, content] : encodings) {
        if (content && is_right(*content)) {
            return {words, true};
        }
    }
    const Disguise container = containerOf(bytes);
    return container.words.empty() && hasReplacements(bytes)
               ? Disguise{"has U+FFFD in place of bytes, which are lost: copy it again, in another "
                          "way"}
               : container;
}

Disguise containerOf(std::string_view bytes) {
    for (const Signature& signature : kSignatures) {
        if (bytes.size() >= signature.at &&
            bytes.substr(signature.at, signature.bytes.size()) == signature.bytes) {
            return {signature.words, signature.is_archive};
        }
    }
    return {};
}

bool isText(std::string_view bytes) {
    return !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [](char c) {
        return (c >= ' ' && c < 0x7F) || kBlanks.find(c) != kBlanks.npos;
    });
}

}  // namespace zelkm_tool
