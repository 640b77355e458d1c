// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

#include "doctor_log.h"

#include <android/hardware/keymaster/4.0/types.h>
#include <zelkeymaster_result.h>

#include <optional>
#include <utility>

#include "log_reader.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using Id = FindingId;
using android::hardware::keymaster::V4_0::ErrorCode;

constexpr size_t kSecondsLen = 19;  // of "2026-11-21 15:20:56"

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
        const Finding finding = {id, names_.at(input), whereIs(input, line) + ": " + text};
        for (Finding& known : evidence_.findings) {
            if (known.id == id) {
                known = finding;
                return;
            }
        }
        evidence_.findings.push_back(finding);
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

    // What an event says about the directory; nothing when it says nothing. The order of two
    // missing files matters: a first change finds the store missing, and then the key.
    std::optional<Id> kindOf(const LogEvent& event) {
        const std::string last = event.arguments.empty() ? "" : event.arguments.back();
        const auto isCode = [&last](int code) { return last == std::to_string(code); };
        switch (event.message->id) {
            case MessageId::kNoFile: {
                const std::string before = std::exchange(last_missing_, last);
                if (last == kKeyFile && before != kStoreFile) {
                    return Id::kLogKeyMadeAnew;
                }
                return last == kStoreFile && before == kKeyFile && !write_failed_
                           ? std::optional(Id::kLogStoreMissing)
                           : std::nullopt;
            }
            case MessageId::kStoreRefused:
            case MessageId::kBackupRestored:
            case MessageId::kNoBackup:
                return Id::kLogStoreRefused;
            case MessageId::kFinishRefused:
                return isCode(ZELKM_VERIFICATION_FAILED) ? std::optional(Id::kLogStoreRefused)
                                                         : std::nullopt;
            case MessageId::kKeyRegenerated:
                return Id::kLogKeyMadeAnew;
            case MessageId::kUpgradeLost:
                return Id::kLogCallLost;
            case MessageId::kKeyRepair:
                repaired_for_ = last;
                return isCode(ZELKM_UNKNOWN_ERROR) ? std::optional(Id::kLogCallLost) : std::nullopt;
            case MessageId::kKeyIntact:
                return repaired_for_ == std::to_string(ZELKM_UNKNOWN_ERROR)
                           ? std::nullopt
                           : std::optional(Id::kLogKeyRefused);
            case MessageId::kUpdateLost:
            case MessageId::kFinishLost:
                return Id::kLogAnswerLost;
            case MessageId::kTmpNotCreated:
            case MessageId::kWriteFailed:
            case MessageId::kCurrentNotRemoved:
            case MessageId::kNewNotInPlace:
                write_failed_ = true;
                return Id::kLogWriteFailed;
            case MessageId::kBeginRefused:
                return isCode(static_cast<int>(ErrorCode::TOO_MANY_OPERATIONS))
                           ? std::optional(Id::kLogTooManyOperations)
                       : isCode(ZELKM_INVALID_KEY_BLOB) ? std::optional(Id::kLogKeyRefused)
                                                        : std::nullopt;
            case MessageId::kUpgradedKeyWritten:
                return Id::kLogKeyUpgraded;
            default:
                return std::nullopt;
        }
    }

    std::vector<std::string> names_;
    std::string last_missing_;
    std::string last_time_;
    std::string repaired_for_;
    bool write_failed_ = false;
    LogEvidence evidence_;
};

}  // namespace

LogEvidence readErrorFiles(const Evidence& evidence) {
    return ErrorFiles(evidence).take();
}

}  // namespace zelkm_tool
