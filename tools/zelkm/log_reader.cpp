// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "log_reader.h"

#include <algorithm>
#include <utility>

#include "bytes.h"

namespace zelkm_tool {
namespace {

constexpr std::string_view kTag = "keymaster_tee";
constexpr size_t kMaxContinuations = 4;
constexpr size_t kShownLen = 200;
constexpr size_t kMaxLineLen = 64 << 10;  // the rest of a longer line is skipped

// The text of a line that may continue a message: what follows the tag, if it has one.
std::string_view continuedText(std::string_view line) {
    const size_t tag = line.find(kTag);
    const size_t end = tag == line.npos ? tag : line.find(": ", tag);
    return end == line.npos ? line : line.substr(end + 2);
}

}  // namespace

void LogReader::read(std::string_view piece) {
    while (!piece.empty()) {
        const size_t end = piece.find('\n');
        const std::string_view part = piece.substr(0, end);
        partial_ += part.substr(0, kMaxLineLen - partial_.size());
        if (end == piece.npos) {
            return;
        }
        readLine(partial_);
        partial_.clear();
        piece.remove_prefix(end + 1);
    }
}

void LogReader::endInput() {
    readLine(partial_);
    partial_.clear();
    flush();
    line_number_ = 0;
    ++input_;
}

void LogReader::end() {
    if (kept_.message != nullptr) {
        take_(kept_);
        kept_ = {};
    }
}

void LogReader::readLine(std::string_view raw) {
    ++line_number_;
    if (raw.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        raw.remove_prefix(kByteOrderMark.size());
    }
    std::string line = withoutEscapes(raw);
    if (line.empty()) {
        return;
    }
    if (const auto parsed = parseLogLine(line)) {
        flush();
        open(line, *parsed);
    } else if (open_ && continuations_.size() < kMaxContinuations) {
        continuations_.push_back({std::move(line), line_number_});
    } else {
        flush();
        count(line, line_number_);
    }
}

void LogReader::open(std::string line, const LogLine& parsed) {
    open_ = true;
    level_ = parsed.level;
    source_ = parsed.source;
    event_ = {};
    event_.text = parsed.text;
    event_.time = parsed.time;
    event_.in_error_file = parsed.in_error_file;
    event_.input = input_;
    event_.line = line_number_;
    whole_ = std::move(line);
}

// Ends the open line. It is a message alone, or together with as few of the following lines as
// possible. A message that seems to be cut at a NUL may go on after a line feed.
void LogReader::flush() {
    if (!open_) {
        return;
    }
    open_ = false;
    size_t used = 0;
    std::string text = event_.text;
    std::vector<FoundMessage> found = matchMessages(text, level_, source_);
    std::string longer = text;
    for (size_t i = 0; i < continuations_.size() && (found.empty() || found[0].cut); ++i) {
        longer += '\n';
        longer += continuedText(continuations_[i].line);
        auto found_longer = matchMessages(longer, level_, source_);
        if (!found_longer.empty()) {
            found = std::move(found_longer);
            text = longer;
            used = i + 1;
        }
    }
    if (found.empty()) {
        count(whole_, event_.line);
    } else {
        event_.message = found.front().message;
        event_.arguments = std::move(found.front().arguments);
        event_.text = std::move(text);
        keep();
    }
    for (; used < continuations_.size(); ++used) {
        count(continuations_[used].line, continuations_[used].number);
    }
    continuations_.clear();
}

void LogReader::keep() {
    if (event_.in_error_file && whole_ == kept_line_ && event_.text == kept_.text) {
        ++kept_.count;
        return;
    }
    end();
    kept_line_ = event_.in_error_file ? whole_ : "";
    kept_ = std::move(event_);
}

void LogReader::count(const std::string& line, size_t number) {
    const bool ours = line.find(kTag) != line.npos || line.find("[log_to_file@") != line.npos ||
                      line.find(sourceName(Source::kObject)) != line.npos ||
                      line.find(sourceName(Source::kEngine)) != line.npos;
    OtherLines& lines = ours ? unknown_ : foreign_;
    if (lines.count++ == 0) {
        lines.input = input_;
        lines.line = number;
        lines.text = line.substr(0, kShownLen);
    }
}

std::vector<FoundMessage> findMessages(std::string_view text) {
    const std::string line = withoutEscapes(text);
    if (const auto parsed = parseLogLine(line)) {
        return matchMessages(parsed->text, parsed->level, parsed->source);
    }
    std::vector<FoundMessage> exact;
    std::vector<FoundMessage> parts;
    constexpr size_t kMinPartLen = 4;
    for (const MessageGroup& group : messageGroups()) {
        for (const Message& message : group.messages) {
            const std::string_view format = message.format;
            if (format.substr(0, format.find_last_not_of('\n') + 1) == line) {
                exact.push_back({&message, {}});
            } else if (line.size() >= kMinPartLen && format.find(line) != format.npos) {
                parts.push_back({&message, {}});
            }
        }
    }
    if (!exact.empty()) {
        return exact;
    }
    std::vector<FoundMessage> found = matchMessages(line, std::nullopt, std::nullopt);
    // The format "%s" alone matches every text.
    const bool says_nothing = !found.empty() && std::string_view("%s") == found[0].message->format;
    return found.empty() || says_nothing ? parts : found;
}

}  // namespace zelkm_tool
