// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the error files in a store directory say about it.

#include <android/hardware/keymaster/4.0/types.h>
#include <zelkeymaster_result.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "doctor_report.h"
#include "log_reader.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using Id = FindingId;
using android::hardware::keymaster::V4_0::ErrorCode;

constexpr size_t kSecondsLen = 19;  // of "2026-11-21 15:20:56"

// What a message says about the directory, whatever comes before it.
struct Sign {
    MessageId message;
    Id finding;
    int code = 0;  // the message's result code; 0 for any
};
constexpr Sign kSigns[] = {
    {MessageId::kStoreRefused, Id::kLogStoreRefused},
    {MessageId::kBackupRestored, Id::kLogStoreRefused},
    {MessageId::kNoBackup, Id::kLogStoreRefused},
    {MessageId::kFinishRefused, Id::kLogStoreRefused, ZELKM_VERIFICATION_FAILED},
    {MessageId::kKeyRegenerated, Id::kLogKeyMadeAnew},
    {MessageId::kUpgradeLost, Id::kLogCallLost},
    {MessageId::kKeyRepair, Id::kLogCallLost, ZELKM_UNKNOWN_ERROR},
    {MessageId::kUpdateLost, Id::kLogAnswerLost},
    {MessageId::kFinishLost, Id::kLogAnswerLost},
    {MessageId::kTmpNotCreated, Id::kLogWriteFailed},
    {MessageId::kWriteFailed, Id::kLogWriteFailed},
    {MessageId::kCurrentNotRemoved, Id::kLogWriteFailed},
    {MessageId::kNewNotInPlace, Id::kLogWriteFailed},
    {MessageId::kBeginRefused, Id::kLogTooManyOperations,
     static_cast<int>(ErrorCode::TOO_MANY_OPERATIONS)},
    {MessageId::kBeginRefused, Id::kLogKeyRefused, ZELKM_INVALID_KEY_BLOB},
    {MessageId::kUpgradedKeyWritten, Id::kLogKeyUpgraded},
};

class ErrorFiles {
  public:
    explicit ErrorFiles(const Evidence& evidence) {
        LogReader reader([this](const LogEvent& event) { take(event); });
        for (const char* name : kErrorFiles) {
            if (const std::string* content = evidence.content(name)) {
                names_.push_back(name);
                reader.read(*content);
                reader.endInput();
            }
        }
        reader.end();
        for (const OtherLines* others : {&reader.unknown(), &reader.foreign()}) {
            if (others->count != 0) {
                add(Id::kLogUnknownLines, others->input, others->line,
                    std::to_string(others->count) + " lines, the first: " + others->text);
            }
        }
    }

    LogEvidence take() { return std::move(evidence_); }

  private:
    std::string whereIs(size_t input, size_t line) const {
        return names_.at(input) + ":" + std::to_string(line);
    }

    // The last event of a kind counts.
    void add(Id id, size_t input, size_t line, const std::string& text) {
        std::vector<Finding>& findings = evidence_.findings;
        findings.erase(std::remove_if(findings.begin(), findings.end(),
                                      [id](const Finding& known) { return known.id == id; }),
                       findings.end());
        findings.push_back({id, names_.at(input), whereIs(input, line) + ": " + text});
    }

    void take(const LogEvent& event) {
        evidence_.timeline.push_back(
            {event.time, whereIs(event.input, event.line),
             event.text + (event.count > 1 ? " (x" + std::to_string(event.count) + ")" : "")});
        const std::string text = event.time + " " + event.text;
        if (const auto id = kindOf(event)) {
            add(*id, event.input, event.line, text);
        }
        if (event.in_error_file) {
            const std::string time = event.time.substr(0, kSecondsLen);
            if (time < last_time_) {
                add(Id::kLogClockJumped, event.input, event.line, text + ", after " + last_time_);
            }
            last_time_ = time;
        }
    }

    // What an event says about the directory; nothing when it says nothing.
    std::optional<Id> kindOf(const LogEvent& event) {
        const MessageId message = event.message->id;
        const std::string last = event.arguments.empty() ? "" : event.arguments.back();
        if (message == MessageId::kKeyRepair) {
            call_lost_ = last == std::to_string(ZELKM_UNKNOWN_ERROR);
        }
        for (const Sign& sign : kSigns) {
            if (sign.message == message && (sign.code == 0 || last == std::to_string(sign.code))) {
                write_failed_ = write_failed_ || sign.finding == Id::kLogWriteFailed;
                return sign.finding;
            }
        }
        // The order of two missing files matters: a first change finds the store missing, and then
        // the key.
        if (message == MessageId::kNoFile) {
            const std::string before = std::exchange(last_missing_, last);
            return last == kKeyFile && before != kStoreFile ? std::optional(Id::kLogKeyMadeAnew)
                   : last == kStoreFile && before == kKeyFile && !write_failed_
                       ? std::optional(Id::kLogStoreMissing)
                       : std::nullopt;
        }
        // After a lost call the key is intact because it was never refused.
        return message == MessageId::kKeyIntact && !call_lost_ ? std::optional(Id::kLogKeyRefused)
                                                               : std::nullopt;
    }

    std::vector<std::string> names_;
    std::string last_missing_;
    std::string last_time_;
    bool call_lost_ = false;
    bool write_failed_ = false;
    LogEvidence evidence_;
};

}  // namespace

LogEvidence readErrorFiles(const Evidence& evidence) {
    return ErrorFiles(evidence).take();
}

}  // namespace zelkm_tool
