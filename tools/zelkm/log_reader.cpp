// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "log_reader.h"

#include <regex>

#include "bytes.h"

namespace zelkm_tool {
namespace {

constexpr std::string_view kTag = "keymaster_tee";
constexpr std::string_view kErrorFileTag = "[log_to_file@";
constexpr size_t kMaxContinuations = 4;
constexpr size_t kShownLen = 200;
constexpr size_t kMaxLineLen = 64 << 10;  // the rest of a longer line is skipped
constexpr size_t kMaxPrefixLen = 256;     // what loggers and other programs put before a message

// Whether the line may be the library's.
bool isOurs(std::string_view line) {
    return line.find(kTag) != line.npos || line.find(kErrorFileTag) != line.npos ||
           line.find(kObjectSource) != line.npos || line.find(kEngineSource) != line.npos;
}

// The text of a line that may continue a message: what follows the tag, if it has one.
std::string_view continuedText(std::string_view line) {
    const size_t tag = line.find(kTag);
    const size_t end = tag == line.npos ? tag : line.find(": ", tag);
    return end == line.npos ? line : line.substr(end + 2);
}

}  // namespace

std::optional<LogLine> parseLogLine(const std::string& line) {
    // "[ERR] (velt_secure_db.cpp:123) ", where parts of removed escape sequences may stand around
    // the level, or "WARN  [4242] [log_to_file@102] zelkeymaster_operation.cpp(803) :". The first
    // one belongs to the line: a message may quote another.
    static const std::regex prefix(
        R"((.*?)(?:\[.{0,14}(ERR|WRN|DBG).{0,14}\] \((zelkeymaster_operation\.cpp|velt_secure_db\.cpp):\d+\) )"
        R"(| (ERROR|WARN) +\[\d+\] \[log_to_file@\d+\] zelkeymaster_operation\.cpp\(\d+\) :))");
    static const std::regex time(R"((\d{4}-)?\d\d-\d\d \d\d:\d\d:\d\d(\.\d*)?( [+-]\d{4})?)");
    const std::string start = line.substr(0, kMaxPrefixLen);
    std::smatch found;
    if (!isOurs(line) ||
        !std::regex_search(start, found, prefix, std::regex_constants::match_continuous)) {
        return std::nullopt;
    }
    const bool in_error_file = found[4].matched;
    const std::string before = found[1];
    std::smatch found_time;
    std::regex_search(before, found_time, time);
    return LogLine{in_error_file ? *found[4].first : *found[2].first,
                   in_error_file ? kObjectSource : found[3].str(),
                   line.substr(static_cast<size_t>(found.length())),
                   found_time.empty() ? "" : found_time.str(), in_error_file};
}

std::string withoutEscapes(std::string_view line) {
    std::string result;
    result.reserve(line.size());
    for (size_t at = 0; at < line.size(); ++at) {
        if (line.substr(at, 2) == "\033[") {
            const size_t end = line.find_first_not_of("0123456789;?", at + 2);
            if (end != line.npos && line[end] >= '@' && line[end] <= '~') {
                at = end;
                continue;
            }
        }
        result += line[at];
    }
    result.resize(result.find_last_not_of(std::string_view("\r\0", 2)) + 1);
    return result;
}

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
    Line line = {withoutEscapes(raw), line_number_};
    if (line.text.empty()) {
        return;
    }
    std::optional<LogLine> parsed = parseLogLine(line.text);
    if (parsed || lines_.size() > kMaxContinuations) {
        flush();
    }
    if (parsed) {
        open_ = std::move(parsed);
    }
    lines_.push_back(std::move(line));
    if (!open_) {
        flush();
    }
}

// Ends the open line. It is a message alone, or together with as few of the following lines as
// possible. A message that seems to be cut at a NUL may go on after a line feed.
void LogReader::flush() {
    size_t used = 0;
    if (open_) {
        LogEvent event;
        std::string text = open_->text;
        for (size_t next = 1;; ++next) {
            std::vector<FoundMessage> found = matchMessages(text, open_->level, open_->source);
            if (!found.empty()) {
                static_cast<FoundMessage&>(event) = std::move(found.front());
                event.text = text;
                used = next;
            }
            if ((used != 0 && !event.cut) || next >= lines_.size()) {
                break;
            }
            text += '\n';
            text += continuedText(lines_[next].text);
        }
        if (used != 0) {
            event.time = open_->time;
            event.in_error_file = open_->in_error_file;
            event.input = input_;
            event.line = lines_.front().number;
            keep(std::move(event), lines_.front().text);
        }
    }
    for (; used < lines_.size(); ++used) {
        count(lines_[used]);
    }
    lines_.clear();
    open_.reset();
}

void LogReader::keep(LogEvent event, const std::string& line) {
    if (event.in_error_file && line == kept_line_ && event.text == kept_.text) {
        ++kept_.count;
        return;
    }
    end();
    kept_line_ = event.in_error_file ? line : "";
    kept_ = std::move(event);
}

void LogReader::count(const Line& line) {
    OtherLines& lines = isOurs(line.text) ? unknown_ : foreign_;
    if (lines.count++ == 0) {
        lines.input = input_;
        lines.line = line.number;
        lines.text = line.text.substr(0, kShownLen);
    }
}

std::vector<FoundMessage> findMessages(std::string_view text) {
    constexpr size_t kMinPartLen = 4;
    const std::string line = withoutEscapes(text);
    if (const auto parsed = parseLogLine(line)) {
        return matchMessages(parsed->text, parsed->level, parsed->source);
    }
    std::vector<FoundMessage> exact;
    std::vector<FoundMessage> parts;
    for (const Message& message : messages()) {
        if (message.format == line) {
            exact.push_back({&message, {}});
        } else if (line.size() >= kMinPartLen && message.format.find(line) != line.npos) {
            parts.push_back({&message, {}});
        }
    }
    if (!exact.empty()) {
        return exact;
    }
    std::vector<FoundMessage> found = matchMessages(line);
    // The format "%s" alone matches every text.
    const bool says_nothing = !found.empty() && found[0].message->format == "%s";
    return found.empty() || says_nothing ? parts : found;
}

}  // namespace zelkm_tool
