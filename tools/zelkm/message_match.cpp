// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "messages.h"

#include <algorithm>

namespace zelkm_tool {
namespace {

using Arguments = std::vector<std::string>;

constexpr size_t kMaxNumberLen = 20;  // a 64-bit number with its sign or "0x"
constexpr std::string_view kDecimalDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

std::string_view withoutLineFeeds(std::string_view text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

// Removes the conversion at the start of the format, and returns its letter.
char takeConversion(std::string_view* format) {
    const size_t letter = std::min(format->find_first_not_of("%0123456789lz"), format->size() - 1);
    const char result = (*format)[letter];
    format->remove_prefix(letter + 1);
    return result;
}

// The length of the number at the start of the text; 0 when there is none.
size_t numberLen(std::string_view text, std::string_view prefix, std::string_view digits) {
    const size_t start = text.substr(0, prefix.size()) == prefix ? prefix.size() : 0;
    const size_t end = std::min(text.find_first_not_of(digits, start), text.size());
    return end == start || end > kMaxNumberLen ? 0 : end;
}

// How many bytes at the start of the text this conversion can have printed; 0 for none.
size_t valueLen(char conversion, std::string_view text) {
    constexpr std::string_view kNullPointer = "(nil)";
    switch (conversion) {
        case 'c':
            return std::min<size_t>(text.size(), 1);
        case 'd':
            return numberLen(text, "-", kDecimalDigits);
        case 'p':
            if (text.substr(0, kNullPointer.size()) == kNullPointer) {
                return kNullPointer.size();
            }
            return text.substr(0, 2) == "0x" ? numberLen(text, "0x", kHexDigits) : 0;
        case 'u':
            return numberLen(text, "", kDecimalDigits);
        case 'x':
            return numberLen(text, "", kHexDigits);
        default:
            return 0;
    }
}

// A format without %s cannot print more bytes than this.
size_t maxLen(std::string_view format) {
    size_t len = format.size();
    for (const char c : format) {
        len += c == '%' ? kMaxNumberLen : 0;
    }
    return len;
}

bool match(std::string_view format, std::string_view text, Arguments* arguments) {
    while (!format.empty()) {
        if (format[0] != '%') {
            if (text.empty() || text[0] != format[0]) {
                return false;
            }
            format.remove_prefix(1);
            text.remove_prefix(1);
            continue;
        }
        const char conversion = takeConversion(&format);
        if (conversion == 's') {
            // When no other %s follows, the rest of the format is short, and the value's end is
            // near the text's end.
            const bool another = format.find("%s") != format.npos;
            const size_t tail = another ? text.size() : std::min(text.size(), maxLen(format));
            const size_t num_before = arguments->size();
            for (size_t end = format.empty() ? text.size() : text.size() - tail; end <= text.size();
                 ++end) {
                arguments->emplace_back();
                if (match(format, text.substr(end), arguments)) {
                    (*arguments)[num_before] = text.substr(0, end);
                    return true;
                }
                arguments->resize(num_before);
            }
            return false;
        }
        const size_t len = valueLen(conversion, text);
        if (conversion == 'c' && len == 0) {
            arguments->emplace_back();  // a NUL, at which the logged text ends
            return true;
        }
        if (len == 0) {
            return false;
        }
        arguments->emplace_back(text.substr(0, len));
        text.remove_prefix(len);
    }
    return text.empty();
}

size_t numLiteralBytes(std::string_view format) {
    size_t count = 0;
    while (!format.empty()) {
        if (format[0] == '%') {
            takeConversion(&format);
        } else {
            format.remove_prefix(1);
            ++count;
        }
    }
    return count;
}

bool isOneOf(std::string_view words, std::string_view word) {
    while (!words.empty()) {
        const size_t end = std::min(words.find('|'), words.size());
        if (words.substr(0, end) == word) {
            return true;
        }
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return false;
}

}  // namespace

std::optional<Arguments> matchFormat(std::string_view format, std::string_view text) {
    Arguments arguments;
    if (!match(withoutLineFeeds(format), withoutLineFeeds(text), &arguments)) {
        return std::nullopt;
    }
    return arguments;
}

std::vector<FoundMessage> matchMessages(std::string_view text, std::optional<Level> level,
                                        std::optional<Source> source) {
    std::vector<FoundMessage> best;
    size_t most = 0;
    for (const MessageGroup& group : messageGroups()) {
        for (const Message& message : group.messages) {
            if ((level && *level != message.level) || (source && *source != message.source)) {
                continue;
            }
            auto arguments = matchFormat(message.format, text);
            if (!arguments ||
                (message.words != nullptr && !isOneOf(message.words, arguments->front()))) {
                continue;
            }
            const size_t literal = numLiteralBytes(message.format);
            if (!best.empty() && literal < most) {
                continue;
            }
            if (literal > most) {
                best.clear();
            }
            most = literal;
            const std::string_view format = message.format;
            const auto num_conversions = std::count(format.begin(), format.end(), '%');
            const bool cut = arguments->size() < static_cast<size_t>(num_conversions);
            best.push_back({&message, *std::move(arguments), cut});
        }
    }
    return best;
}

}  // namespace zelkm_tool
