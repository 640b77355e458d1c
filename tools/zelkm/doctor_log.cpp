// Copyright 2026 The libzelkeymaster authors
// SPDX-License-Identifier: Apache-2.0

// What the error files in a store directory say about it.

#include <android/hardware/keymaster/4.0/types.h>
#include <zelkeymaster_result.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "doctor_report.h"
#include "log_reader.h"
#include "store_names.h"

namespace zelkm_tool {
namespace {

using android::hardware::keymaster::V4_0::ErrorCode;

constexpr char kKeyRepair[] = "try restoreKeyBlob(%d)";
constexpr char kBeginRefused[] = "error in begin process : %d";
constexpr size_t kSecondsLen = 19;  // of "2026-11-21 15:20:56"

// What a message says about the directory, whatever comes before it.
constexpr struct {
    std::string_view format;  // of the message
    const char* finding;
    int code = 0;  // the message's result code; 0 for any
} kSigns[] = {
    {kStoreRefused, "log-store-refused"},
    {"restore the stored db. need to restart keystore", "log-store-refused"},
    {"fail rename during restore:%s(%d)", "log-store-refused"},
    {"error in finish process : %d", "log-store-refused", ZELKM_VERIFICATION_FAILED},
    {kKeyRegenerated, "log-key-made-anew"},
    {"error during upgradeKey hidl call : %d", "log-call-lost"},
    {kKeyRepair, "log-call-lost", ZELKM_UNKNOWN_ERROR},
    {"error in update hidl call : %d", "log-answer-lost"},
    {"error in finish hidl call : %d", "log-answer-lost"},
    {"file open: %s(%d)", "log-write-failed"},
    {kWriteFailed, "log-write-failed"},
    {"fail unlink: %s(%d)", "log-write-failed"},
    {"fail rename: %s(%d)", "log-write-failed"},
    {kBeginRefused, "log-too-many-operations", static_cast<int>(ErrorCode::TOO_MANY_OPERATIONS)},
    {kBeginRefused, "log-key-refused", ZELKM_INVALID_KEY_BLOB},
    {"Upgrade the db key file", "log-key-upgraded"},
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
        const OtherLines& unknown = reader.unknown();
        const OtherLines& first = unknown.count != 0 ? unknown : reader.foreign();
        if (first.count != 0) {
            add("log-unknown-lines", first.input, first.line,
                std::to_string(unknown.count + reader.foreign().count) +
                    " lines, the first: " + first.text);
        }
    }

    LogEvidence take() { return std::move(evidence_); }

  private:
    std::string whereIs(size_t input, size_t line) const {
        return names_.at(input) + ":" + std::to_string(line);
    }

    // The last event of a kind counts.
    void add(const std::string& name, size_t input, size_t line, const std::string& text) {
        std::vector<Finding>& findings = evidence_.findings;
        findings.erase(std::remove_if(findings.begin(), findings.end(),
                                      [&name](const Finding& known) { return known.name == name; }),
                       findings.end());
        findings.push_back({name, names_.at(input), whereIs(input, line) + ": " + text});
    }

    void take(const LogEvent& event) {
        evidence_.timeline.push_back(
            {event.time, whereIs(event.input, event.line),
             event.text + (event.count > 1 ? " (x" + std::to_string(event.count) + ")" : "")});
        const std::string text = event.time + " " + event.text;
        if (const std::string name = findingOf(event); !name.empty()) {
            add(name, event.input, event.line, text);
        }
        if (event.in_error_file) {
            const std::string time = event.time.substr(0, kSecondsLen);
            if (time < last_time_) {
                add("log-clock-jumped", event.input, event.line, text + ", after " + last_time_);
            }
            last_time_ = time;
        }
    }

    // What an event says about the directory; empty when it says nothing.
    std::string findingOf(const LogEvent& event) {
        const std::string& format = event.message->format;
        const std::string last = event.arguments.empty() ? "" : event.arguments.back();
        if (format == kKeyRepair) {
            call_lost_ = last == std::to_string(ZELKM_UNKNOWN_ERROR);
        }
        for (const auto& [sign, finding, code] : kSigns) {
            if (sign == format && (code == 0 || last == std::to_string(code))) {
                write_failed_ = write_failed_ || finding == std::string("log-write-failed");
                return finding;
            }
        }
        // The order of two missing files matters: a first change finds the store missing, and then
        // the key.
        if (format == "no file %s") {
            const std::string before = std::exchange(last_missing_, last);
            return last == kKeyFile && before != kStoreFile ? "log-key-made-anew"
                   : last == kStoreFile && before == kKeyFile && !write_failed_
                       ? "log-store-missing"
                       : "";
        }
        // After a lost call the key is intact because it was never refused.
        return format == kKeyIntact && !call_lost_ ? "log-key-refused" : "";
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
