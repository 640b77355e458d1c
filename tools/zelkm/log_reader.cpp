// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "log_reader.h"

#include <algorithm>
#include <utility>

namespace zelkm_tool {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kTag = "keymaster_tee";
constexpr size_t kMaxContinuations = 4;
constexpr size_t kShownLen = 200;
constexpr int64_t kMicrosPerDay = int64_t{24} * 60 * 60 * 1000000;

// A line that does not have the library's form. It may continue the message before it.
struct Continuation {
    std::string line;
    size_t number;
};

// Whether the line is "[ 11-21 15:20:56.951  1234: 5678 E/keymaster_tee ]", which logcat puts above
// a message.
bool isHeading(std::string_view line) {
    return line.substr(0, 2) == "[ " && line.back() == ']' && line.find('/') != line.npos;
}

// The text of a line that may continue a message: what follows the tag, if it has one.
std::string_view continuedText(std::string_view line) {
    const size_t tag = line.find(kTag);
    const size_t end = tag == line.npos ? tag : line.find(": ", tag);
    return end == line.npos ? line : line.substr(end + 2);
}

class Reader {
  public:
    void read(std::string_view text) {
        line_number_ = 0;
        while (!text.empty()) {
            const size_t end = std::min(text.find('\n'), text.size());
            readLine(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        flush();
        ++input_;
    }

    Log take() { return std::move(log_); }

  private:
    void readLine(std::string_view raw) {
        ++line_number_;
        if (raw.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
            raw.remove_prefix(kByteOrderMark.size());
        }
        std::string line = withoutEscapes(raw);
        if (line.empty()) {
            return;
        }
        if (auto parsed = parseLogLine(line)) {
            flush();
            open(line, *parsed);
        } else if (isHeading(line)) {
            flush();
            heading_ = findTime(line);
            if (line.find(kTag) == line.npos) {
                count(&log_.foreign, line, line_number_);
            }
        } else if (open_ && continuations_.size() < kMaxContinuations) {
            continuations_.push_back({std::move(line), line_number_});
        } else {
            flush();
            countLine(line, line_number_);
        }
    }

    void open(const std::string& line, const LogLine& parsed) {
        open_ = true;
        whole_ = line;
        level_ = parsed.level;
        source_ = parsed.source;
        event_ = {};
        event_.text = parsed.text;
        event_.time = parsed.time.clock == Clock::kNone ? heading_ : parsed.time;
        event_.source_line = parsed.source_line;
        event_.thread = parsed.thread;
        event_.in_error_file = parsed.in_error_file;
        event_.input = input_;
        event_.line = line_number_;
    }

    // Ends the open line. It is a message alone, or together with as few of the following lines as
    // possible. A message that seems to be cut at a NUL may go on after a line feed.
    void flush() {
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
            count(&log_.unknown, whole_, event_.line);
        } else {
            event_.message = found.front().message;
            event_.arguments = std::move(found.front().arguments);
            event_.text = std::move(text);
            add();
        }
        for (; used < continuations_.size(); ++used) {
            countLine(continuations_[used].line, continuations_[used].number);
        }
        continuations_.clear();
    }

    void add() {
        if (event_.in_error_file && !log_.events.empty() && whole_ == last_ &&
            log_.events.back().text == event_.text) {
            ++log_.events.back().count;
            return;
        }
        last_ = event_.in_error_file ? whole_ : "";
        followYear();
        log_.events.push_back(std::move(event_));
    }

    // Adds or removes a year when the time steps by more than half a year: that step is a new year.
    void followYear() {
        if (event_.time.clock != Clock::kYearless) {
            return;
        }
        const int64_t year = 366 * kMicrosPerDay;
        const int64_t micros = event_.time.micros + num_years_ * year;
        if (seen_yearless_ && micros < last_yearless_ - year / 2) {
            ++num_years_;
        } else if (seen_yearless_ && micros > last_yearless_ + year / 2) {
            --num_years_;
        }
        seen_yearless_ = true;
        event_.time.micros += num_years_ * year;
        last_yearless_ = event_.time.micros;
    }

    void countLine(const std::string& line, size_t number) {
        const bool ours = line.find(kTag) != line.npos || line.find("[log_to_file@") != line.npos ||
                          line.find(sourceName(Source::kObject)) != line.npos ||
                          line.find(sourceName(Source::kEngine)) != line.npos;
        count(ours ? &log_.unknown : &log_.foreign, line, number);
    }

    void count(OtherLines* lines, const std::string& line, size_t number) {
        if (lines->count++ == 0) {
            lines->input = input_;
            lines->line = number;
            lines->text = line.substr(0, kShownLen);
        }
    }

    Log log_;
    size_t input_ = 0;
    size_t line_number_ = 0;

    LogTime heading_;
    bool open_ = false;  // the members below are a line that may have more text
    Level level_ = Level::kError;
    Source source_ = Source::kObject;
    std::string whole_;
    LogEvent event_;
    std::vector<Continuation> continuations_;

    std::string last_;  // the whole line of the last event, if it was in an error file
    bool seen_yearless_ = false;
    int64_t num_years_ = 0;
    int64_t last_yearless_ = 0;
};

}  // namespace

Log readLog(const std::vector<std::string_view>& inputs) {
    Reader reader;
    for (const std::string_view input : inputs) {
        reader.read(input);
    }
    return reader.take();
}

void sortByTime(std::vector<LogEvent>* events) {
    const bool comparable =
        std::all_of(events->begin(), events->end(), [events](const LogEvent& event) {
            return event.time.clock != Clock::kNone &&
                   event.time.clock == events->front().time.clock;
        });
    if (comparable) {
        std::stable_sort(events->begin(), events->end(), [](const LogEvent& a, const LogEvent& b) {
            return a.time.micros < b.time.micros;
        });
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
